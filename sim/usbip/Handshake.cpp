#include "Handshake.h"

#include <algorithm>

#include "UrbMessages.h"

namespace simbus::usbip {
namespace {

constexpr unsigned kVersion = 0x0111;
constexpr unsigned kListRequest = 0x8005;
constexpr unsigned kImportRequest = 0x8003;
constexpr unsigned kAnswerMask =
    0x7FFF;  // an answer has its request's operation code without the highest bit
constexpr std::size_t kPathBytes = 256;
constexpr std::uint8_t kInterfaceDescriptor = 4;
constexpr std::size_t kInterfaceDescriptorBytes = 9;
constexpr std::size_t kInterfaceBytes = 4;    // per interface in an answer
constexpr std::size_t kMostInterfaces = 255;  // their count is one byte

void put(Bytes& message, std::uint32_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        message.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void putText(Bytes& message, const std::string& text, std::size_t field) {
    const std::size_t end = message.size() + field;
    message.insert(message.end(), text.begin(),
                   text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), field - 1)));
    message.resize(end);
}

/// Returns a byte of a descriptor, or 0 beyond its end: a scenario may define descriptors of any length.
std::uint8_t byteAt(const Bytes& descriptor, std::size_t at) {
    return at < descriptor.size() ? descriptor[at] : 0;
}

unsigned wordAt(const Bytes& descriptor, std::size_t at) {
    return byteAt(descriptor, at) | static_cast<unsigned>(byteAt(descriptor, at + 1)) << 8;
}

Bytes firstConfiguration(const DeviceInfo& device) {
    return device.configurationDescriptors.empty() ? Bytes{} : device.configurationDescriptors.front();
}

/// Class, subclass, protocol and a padding byte of the first setting of each interface.
Bytes interfacesOf(const Bytes& configuration) {
    Bytes triples;
    for (std::size_t at = 0; byteAt(configuration, at) > 0; at += configuration[at]) {
        const bool isWhole = at + kInterfaceDescriptorBytes <= configuration.size();
        if (isWhole && configuration[at + 1] == kInterfaceDescriptor && configuration[at + 3] == 0) {
            triples.insert(triples.end(),
                           {configuration[at + 5], configuration[at + 6], configuration[at + 7], 0});
        }
    }
    triples.resize(std::min(triples.size(), kInterfaceBytes * kMostInterfaces));
    return triples;
}

void putDevice(Bytes& message, const DeviceInfo& device, std::size_t interfaces) {
    const Bytes& descriptor = device.deviceDescriptor;
    putText(message, "/simbus/" + device.id, kPathBytes);
    putText(message, busIdOf(device), sizeof(BusIdField));
    put(message, device.busNumber, 4);
    put(message, device.address, 4);
    put(message, kernelSpeed(device.speed), 4);
    for (const std::size_t vendorProductRelease : {8U, 10U, 12U}) {
        put(message, wordAt(descriptor, vendorProductRelease), 2);
    }
    for (const std::size_t classSubClassProtocol : {4U, 5U, 6U}) {
        put(message, byteAt(descriptor, classSubClassProtocol), 1);
    }
    put(message, byteAt(firstConfiguration(device), 5), 1);
    put(message, byteAt(descriptor, 17), 1);
    put(message, static_cast<std::uint32_t>(interfaces), 1);
}

Bytes answerTo(unsigned request, std::uint32_t status) {
    Bytes message;
    put(message, kVersion, 2);
    put(message, request & kAnswerMask, 2);
    put(message, status, 4);
    return message;
}

}  // namespace

Operation parseOperation(const Preamble& preamble) {
    const auto word = [&](std::size_t at) {
        return static_cast<unsigned>(preamble[at] << 8 | preamble[at + 1]);
    };
    if (word(0) != kVersion) {
        return Operation::unknown;
    }
    switch (word(2)) {
        case kListRequest:
            return Operation::list;
        case kImportRequest:
            return Operation::import;
        default:
            return Operation::unknown;
    }
}

std::string parseBusId(const BusIdField& field) {
    const auto* end = std::find(field.begin(), field.end(), '\0');
    return end == field.end() ? std::string() : std::string(field.begin(), end);
}

std::string busIdOf(const DeviceInfo& device) {
    std::string id = std::to_string(device.busNumber);
    char separator = '-';
    for (const std::uint8_t port : device.ports) {
        id += separator + std::to_string(port);
        separator = '.';
    }
    return id;
}

Bytes listAnswer(const std::vector<DeviceInfoPtr>& devices) {
    Bytes message = answerTo(kListRequest, 0);
    put(message, static_cast<std::uint32_t>(devices.size()), 4);
    for (const DeviceInfoPtr& device : devices) {
        const Bytes interfaces = interfacesOf(firstConfiguration(*device));
        putDevice(message, *device, interfaces.size() / kInterfaceBytes);
        message.insert(message.end(), interfaces.begin(), interfaces.end());
    }
    return message;
}

Bytes importAnswer(ImportStatus status, const DeviceInfo* device) {
    Bytes message = answerTo(kImportRequest, static_cast<std::uint32_t>(status));
    if (status == ImportStatus::granted) {
        putDevice(message, *device, interfacesOf(firstConfiguration(*device)).size() / kInterfaceBytes);
    }
    return message;
}

}  // namespace simbus::usbip
