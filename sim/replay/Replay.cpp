#include "Replay.h"

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "Recording.h"
#include "ReplayScenario.h"
#include "Service.h"
#include "SharedBus.h"

namespace simbus::replay {

namespace {

/// Says what is wrong with it. Throws std::runtime_error when nothing can be replayed.
Recording read(const std::string& file) {
    Recording recording = recordingOf(capture::readCaptureFile(file));
    for (const std::string& problem : recording.problems) {
        std::cerr << "simbus-replay: " << problem << std::endl;
    }
    if (recording.devices.empty()) {
        throw std::runtime_error("there is no device to replay in " + file);
    }
    return recording;
}

std::size_t exchangesOf(const Recording& recording) {
    std::size_t count = 0;
    for (const RecordedDevice& device : recording.devices) {
        count += device.exchanges.size();
    }
    return count;
}

}  // namespace

int writeScenario(const std::string& capture, std::ostream& to) {
    constexpr int kIndent = 2;
    to << scenarioOf(read(capture).devices, AnsweredBy::rules).dump(kIndent) << std::endl;
    return to.good() ? 0 : 1;
}

int run(const std::string& capture, char* const* program) {
    const Recording recording = read(capture);
    const command::PrivateFolder folder;
    const std::string socket = command::shareBus(folder, [&](Bus& bus) {
        bus.loadScenario(scenarioOf(recording.devices, AnsweredBy::program).dump());
    });
    std::vector<std::unique_ptr<Service>> services;
    for (const RecordedDevice& device : recording.devices) {
        services.push_back(std::make_unique<Service>(socket, device));
    }
    const int status = command::runProgram("simbus-replay", program);
    std::size_t replayed = 0;
    for (const auto& service : services) {
        service->stop();
        replayed += service->replayed();
    }
    std::cerr << "simbus-replay: " << replayed << " of " << exchangesOf(recording)
              << " recorded transfers were asked for" << std::endl;
    return status;
}

}  // namespace simbus::replay
