// Fuzzes what reads captures, and what makes devices of them.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "FuzzInput.h"
#include "bus/Bus.h"
#include "capture/CaptureFile.h"
#include "replay/Recording.h"
#include "replay/ReplayScenario.h"
#include "replay/Replayer.h"

namespace {

using simbus::capture::Bytes;
using simbus::capture::Capture;
using simbus::capture::Packet;
using simbus::replay::Answer;
using simbus::replay::AnsweredBy;
using simbus::replay::Exchange;
using simbus::replay::Kind;
using simbus::replay::RecordedDevice;

void checkPlaces(const Capture& capture) {
    const uint8_t* first = capture.file.data();
    std::uint64_t number = 0;
    for (const Packet& packet : capture.packets) {
        require(packet.number > number, "packets are numbered in their order");
        number = packet.number;
        require(packet.size == 0 ||
                    (packet.data >= first && packet.data + packet.size <= first + capture.file.size()),
                "the data of a packet are in the file");
    }
}

/// What was read can be written, and is then read without a complaint.
void writeAgain(const Capture& capture) {
    Bytes file = simbus::capture::captureHeader("fuzz");
    for (const Packet& packet : capture.packets) {
        const std::size_t at = file.size();
        file.resize(at + blockSize(packet));
        writeBlock(file.data() + at, packet);
    }
    const Capture again = simbus::capture::readCapture(file);
    require(again.problems.empty(), "nothing is wrong with what is written");
    require(again.packets.size() == capture.packets.size(), "every packet is read again");
    for (std::size_t i = 0; i < again.packets.size(); ++i) {
        const Packet& one = capture.packets[i];
        const Packet& other = again.packets[i];
        require(one.urb == other.urb && one.event == other.event && one.kind == other.kind &&
                    one.endpoint == other.endpoint && one.device == other.device && one.bus == other.bus &&
                    one.status == other.status && one.length == other.length && one.setup == other.setup &&
                    one.nanoseconds == other.nanoseconds && one.cut == other.cut &&
                    one.bytes() == other.bytes(),
                "a packet is the same again");
    }
}

/// Asks for everything that was recorded, twice.
void replay(const RecordedDevice& device) {
    simbus::replay::Replayer replayer(device, [](const std::string& said) {
        require(!said.empty(), "what is not in the recording is said");
    });
    std::set<std::uint64_t> waiting;
    std::uint64_t request = 0;
    const auto take = [&](const std::vector<Answer>& answers) {
        for (const Answer& answer : answers) {
            require(waiting.erase(answer.request) == 1, "an answer is to a request, once");
        }
    };
    for (int round = 0; round < 2; ++round) {
        for (const Exchange& exchange : device.exchanges) {
            waiting.insert(++request);
            if (exchange.kind == Kind::control) {
                take(replayer.control(request, exchange.setup, exchange.sent));
            } else if (!exchange.isIn()) {
                take(replayer.out(request, exchange.endpoint, exchange.sent));
            } else {
                constexpr std::size_t kMost = std::size_t{64} << 10U;
                take(replayer.in(request, exchange.endpoint, std::min(exchange.length, kMost)));
            }
        }
    }
    for (const std::uint64_t each : waiting) {
        replayer.cancelled(each);
    }
    require(replayer.replayed() <= device.exchanges.size(), "no more is replayed than was recorded");
}

}  // namespace

/// A capture file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const Capture capture = simbus::capture::readCapture(Bytes(data, data + size));
    checkPlaces(capture);
    writeAgain(capture);
    const simbus::replay::Recording recording = simbus::replay::recordingOf(capture);
    simbus::Bus& bus = simbus::Bus::instance();
    for (const AnsweredBy by : {AnsweredBy::rules, AnsweredBy::program}) {
        bus.loadScenario(scenarioOf(recording.devices, by).dump());
        require(bus.devices().size() == recording.devices.size(),
                "the bus has every device of the recording");
    }
    for (const RecordedDevice& device : recording.devices) {
        replay(device);
    }
    bus.loadScenario(R"({"devices": []})");
    return 0;
}
