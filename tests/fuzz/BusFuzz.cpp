// Fuzzes the simulated bus: any scenario, any control commands, any requests to the resulting devices.

#include <array>
#include <atomic>
#include <nlohmann/json.hpp>
#include <string>

#include "FuzzInput.h"
#include "UsbTest.h"
#include "bus/Bus.h"

namespace {

constexpr int kMostCommands = 40;
/// Type and index of the descriptors that a host requests.
constexpr std::array<uint16_t, 8> kDescriptors = {0x100, 0x200, 0x201, 0x300, 0x301, 0x302, 0x2100, 0x2200};

simbus::Bus& bus() {
    return simbus::Bus::instance();
}

std::string nextLine(std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

void load(const std::string& scenario) {
    try {
        bus().loadScenario(scenario);
    } catch (const std::exception&) {
        // Refused, with a reason.
    }
}

void requireAnswer(const std::string& request) {
    const std::string text = bus().command(request);
    const nlohmann::json answer = nlohmann::json::parse(text, nullptr, false);
    require(answer.is_object() && answer.value("ok", nlohmann::json()).is_boolean(),
            "an answer says how it went");
    require(answer.at("ok") == true || answer.value("error", nlohmann::json()).is_string(),
            "a refusal says why");
    require(text.find('\n') == std::string::npos, "an answer is one line");
}

/// Requests a descriptor from the device, as a host does.
void ask(simbus::ConnectionId connection, uint16_t value, uint16_t length) {
    simbus::Bytes data(length);
    std::atomic<bool> done{false};
    simbus::Transfer transfer;
    transfer.setup = {0x80, 6, value, 0, length};
    transfer.data = data.data();
    transfer.length = length;
    transfer.done = [&] { done = true; };
    if (bus().submit(connection, transfer) != simbus::Submitted::accepted) {
        return;
    }
    bus().cancel(transfer);
    require(eventually([&] { return done.load(); }), "every transfer ends");
    require(transfer.actual <= length, "a device answers no more than it is asked for");
}

void askAllDevices() {
    for (const simbus::DeviceInfoPtr& device : bus().devices()) {
        for (const uint16_t value : kDescriptors) {
            ask(device->connection, value, 255);
            ask(device->connection, value, 7);
        }
    }
}

}  // namespace

/// Lines: a scenario, then requests of the control socket.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    load(nextLine(text));
    askAllDevices();
    for (int count = 0; count < kMostCommands && !text.empty(); ++count) {
        requireAnswer(nextLine(text));
    }
    askAllDevices();
    bus().loadScenario(R"({"devices": []})");
    bus().reset();
    require(bus().devices().empty(), "the bus is empty at the end");
    return 0;
}
