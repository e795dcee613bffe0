#include "Recording.h"

#include <algorithm>
#include <utility>

#include "RecordingReader.h"

namespace simbus::replay {

namespace {

using capture::Packet;

constexpr std::size_t kDeviceDescriptorSize = 18;
constexpr std::uint8_t kHubClass = 9;

/// Hubs, and what captures of the kernel have besides devices: address 0, at which a device gets its address,
/// and address 1 of a root hub, whose descriptors are read when the system starts.
bool isNoTool(const RecordedDevice& device) {
    constexpr std::uint8_t kRootHub = 1;
    const bool isDescribed = device.descriptor.size() >= kDeviceDescriptorSize;
    return device.address == 0 ||
           (isDescribed ? device.descriptor[4] == kHubClass : device.address == kRootHub);
}

/// Why a device cannot be replayed; null when it can.
const char* obstacle(const RecordedDevice& device) {
    if (device.descriptor.size() < kDeviceDescriptorSize) {
        return "its device descriptor is not in the capture";
    }
    return device.configurations.count(0) == 0 ? "its configuration descriptor is not in the capture"
                                               : nullptr;
}

std::vector<Packet> byTime(std::vector<Packet> packets) {
    std::stable_sort(packets.begin(), packets.end(),
                     [](const Packet& a, const Packet& b) { return a.nanoseconds < b.nanoseconds; });
    return packets;
}

}  // namespace

Recording recordingOf(const capture::Capture& capture) {
    Recording recording;
    recording.problems = capture.problems;
    std::vector<RecordedDevice> devices;
    std::map<std::pair<std::uint16_t, std::uint8_t>, std::size_t> places;
    const std::vector<Packet> packets = byTime(capture.packets);
    for (const Packet& packet : packets) {
        const bool isNew = places.emplace(std::make_pair(packet.bus, packet.device), devices.size()).second;
        if (isNew) {
            devices.emplace_back().bus = packet.bus;
            devices.back().address = packet.device;
        }
    }
    std::vector<std::vector<std::string>> problems(devices.size());
    std::vector<RecordingReader> readers;
    readers.reserve(devices.size());
    for (std::size_t i = 0; i < devices.size(); ++i) {
        readers.emplace_back(devices[i], problems[i]);
    }
    for (const Packet& packet : packets) {
        readers[places[{packet.bus, packet.device}]].take(packet);
    }
    for (std::size_t i = 0; i < devices.size(); ++i) {
        readers[i].finish();
        if (isNoTool(devices[i])) {
            continue;
        }
        recording.problems.insert(recording.problems.end(), problems[i].begin(), problems[i].end());
        if (const char* why = obstacle(devices[i]); why != nullptr) {
            recording.problems.push_back("device " + devices[i].id() + " is left out: " + why);
        } else {
            recording.devices.push_back(std::move(devices[i]));
        }
    }
    // A host lists devices in the order of their addresses, which it gives in the order of their plugs.
    std::sort(recording.devices.begin(), recording.devices.end(),
              [](const RecordedDevice& a, const RecordedDevice& b) {
                  return std::make_pair(a.bus, a.address) < std::make_pair(b.bus, b.address);
              });
    return recording;
}

std::size_t askedBy(const SetupBytes& setup) {
    return setup[6] | static_cast<std::size_t>(setup[7]) << 8U;
}

Bytes answerOf(const Exchange& exchange, std::size_t asked) {
    Bytes answer = exchange.answered;
    const std::size_t room = asked - std::min(asked, answer.size());
    answer.resize(answer.size() + std::min(exchange.missing, room));
    return answer;
}

std::vector<EndpointPlace> endpointsOf(const RecordedDevice& device) {
    constexpr std::uint8_t kInterface = 4;
    constexpr std::size_t kInterfaceSize = 9;
    constexpr std::uint8_t kEndpoint = 5;
    constexpr std::size_t kEndpointSize = 7;
    std::vector<EndpointPlace> all;
    for (const auto& [index, bytes] : device.configurations) {
        EndpointPlace place;
        for (std::size_t at = 0; at + 1 < bytes.size() && bytes[at] >= 2; at += bytes[at]) {
            const std::size_t left = bytes.size() - at;
            if (bytes[at + 1] == kInterface && left >= kInterfaceSize) {
                place.interface = bytes[at + 2];
                place.interfaceClass = bytes[at + 5];
            } else if (bytes[at + 1] == kEndpoint && left >= kEndpointSize) {
                place.address = bytes[at + 2];
                place.attributes = bytes[at + 3];
                all.push_back(place);
            }
        }
    }
    return all;
}

}  // namespace simbus::replay
