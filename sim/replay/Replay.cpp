#include "Replay.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "Bus.h"
#include "Program.h"
#include "Recording.h"
#include "ReplayScenario.h"
#include "Service.h"

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
    to << scenarioOf(read(capture).devices).dump(kIndent) << std::endl;
    return to.good() ? 0 : 1;
}

int run(const std::string& capture, char* const* program) {
    const Recording recording = read(capture);
    if (std::getenv("SIMBUS_BUS") != nullptr) {
        throw std::runtime_error("this program is on a simulated bus already (SIMBUS_BUS)");
    }
    unsetenv("SIMBUS_SCENARIO");
    Bus& bus = Bus::instance();
    bus.loadScenario(scenarioOf(recording.devices).dump());
    const command::PrivateFolder folder;
    const char* wanted = std::getenv("SIMBUS_SOCKET");
    const bool isWanted = wanted != nullptr && *wanted != '\0';
    const std::string socket = isWanted ? wanted : folder.path() + "/bus";
    if (!(isWanted ? bus.hasControlSocket() : bus.openControlSocket(socket))) {
        throw std::runtime_error("there is no control socket at " + socket);
    }
    bus.setFront(Bus::Front::shared);
    std::vector<std::unique_ptr<Service>> services;
    for (const RecordedDevice& device : recording.devices) {
        services.push_back(std::make_unique<Service>(socket, device));
    }
    command::joinBus(std::filesystem::absolute(socket));
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
