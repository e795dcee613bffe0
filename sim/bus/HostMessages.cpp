#include "HostMessages.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace simbus {

namespace {

constexpr std::size_t kSetupBytes = 8;

constexpr std::array<std::pair<const char*, Status>, 5> kStatuses = {{{"completed", Status::completed},
                                                                      {"stall", Status::stall},
                                                                      {"noDevice", Status::noDevice},
                                                                      {"cancelled", Status::cancelled},
                                                                      {"overflow", Status::overflow}}};
constexpr std::array<std::pair<const char*, Submitted>, 3> kSubmitted = {
    {{"accepted", Submitted::accepted},
     {"noDevice", Submitted::noDevice},
     {"noEndpoint", Submitted::noEndpoint}}};

template <class Names, class Value>
std::string nameIn(const Names& names, Value value) {
    return std::find_if(names.begin(), names.end(), [&](const auto& each) { return each.second == value; })
        ->first;
}

template <class Names>
auto valueIn(const Names& names, const Json& json, const char* key) {
    const std::string name = textOf(json, key);
    const auto found =
        std::find_if(names.begin(), names.end(), [&](const auto& each) { return name == each.first; });
    if (found == names.end()) {
        throw std::runtime_error("\"" + std::string(key) + "\" is unknown: " + name);
    }
    return found->second;
}

Json toJson(const HidInterface& hid) {
    Json json = {{"number", hid.number}, {"in", hid.inEndpoint}, {"input", hid.inputBytes}};
    if (hid.outEndpoint) {
        json["out"] = *hid.outEndpoint;
    }
    return json;
}

HidInterface hidFrom(const Json& json) {
    return {numberOf<std::uint8_t>(json, "number", 0), numberOf<std::uint8_t>(json, "in", 0),
            optionalNumber<std::uint8_t>(json, "out"), numberOf<std::uint32_t>(json, "input", 0)};
}

}  // namespace

Json toJson(const DeviceInfo& device) {
    Json json = {{"connection", device.connection},
                 {"device", device.id},
                 {"serial", device.serial},
                 {"speed", static_cast<int>(device.speed)},
                 {"bus", device.busNumber},
                 {"address", device.address},
                 {"ports", hexOf(device.ports)},
                 {"hub", device.hub},
                 {"deviceDescriptor", hexOf(device.deviceDescriptor)},
                 {"configurationDescriptors", Json::array()},
                 {"hid", Json::array()},
                 {"hostFailures", device.hostFailures}};
    for (const Bytes& configuration : device.configurationDescriptors) {
        json["configurationDescriptors"].push_back({{"data", hexOf(configuration)}});
    }
    for (const HidInterface& hid : device.hidInterfaces) {
        json["hid"].push_back(toJson(hid));
    }
    return json;
}

DeviceInfo deviceFrom(const Json& json) {
    DeviceInfo device;
    device.connection = static_cast<ConnectionId>(numberOf<std::int64_t>(json, "connection", 0));
    device.id = textOf(json, "device");
    device.serial = optionalText(json, "serial").value_or("");
    device.speed = static_cast<Speed>(numberOf<int>(json, "speed", 0));
    device.busNumber = numberOf<std::uint8_t>(json, "bus", 1);
    device.address = numberOf<std::uint8_t>(json, "address", 1);
    device.ports = bytesOf(json, "ports");
    device.hub = static_cast<ConnectionId>(numberOf<std::int64_t>(json, "hub", 0));
    device.deviceDescriptor = bytesOf(json, "deviceDescriptor");
    for (const Json& configuration : valueOf(json, "configurationDescriptors")) {
        device.configurationDescriptors.push_back(bytesOf(configuration, "data"));
    }
    for (const Json& hid : valueOf(json, "hid")) {
        device.hidInterfaces.push_back(hidFrom(hid));
    }
    for (const auto& [operation, code] : valueOf(json, "hostFailures").items()) {
        device.hostFailures[operation] = code.get<int>();
    }
    return device;
}

Bytes toBytes(const Setup& setup) {
    const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFFU); };
    const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8U); };
    return {setup.requestType, setup.request,     low(setup.value),  high(setup.value),
            low(setup.index),  high(setup.index), low(setup.length), high(setup.length)};
}

Setup setupFrom(const Bytes& bytes) {
    if (bytes.size() != kSetupBytes) {
        throw std::runtime_error("\"setup\" is not of 8 bytes");
    }
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8U);
    };
    return {bytes[0], bytes[1], word(2), word(4), word(6)};
}

bool isIn(const Transfer& transfer) {
    const bool isControl = (transfer.endpoint & 0x0FU) == 0;
    return ((isControl ? transfer.setup.requestType : transfer.endpoint) & 0x80U) != 0;
}

std::string nameOf(Status status) {
    return nameIn(kStatuses, status);
}

Status statusFrom(const Json& json, const char* key) {
    return valueIn(kStatuses, json, key);
}

std::string nameOf(Submitted submitted) {
    return nameIn(kSubmitted, submitted);
}

Submitted submittedFrom(const Json& json, const char* key) {
    return valueIn(kSubmitted, json, key);
}

}  // namespace simbus
