// The parsed and checked scenario of one device: the contents of its descriptors and the behaviour of its
// endpoints and its control pipe. Plain values; while a device is plugged in, only endpoint behaviours
// change.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Bus.h"
#include "Rules.h"

namespace simbus {

struct Behaviour {
    enum class Kind { echo, sink, source, silent, stall, program };
    Kind kind = Kind::echo;
    std::uint8_t echoTo = 0;           ///< the IN endpoint that returns the bytes of an echoing OUT endpoint
    std::uint32_t delayMs = 0;         ///< from submission to completion
    std::size_t shortBy = 0;           ///< transfers move this many bytes less than requested
    std::optional<std::size_t> limit;  ///< and at most this many; a silent endpoint moves them, then nothing
    bool record = true;                ///< keep what an OUT endpoint takes, for Bus::received()
    std::vector<Rule> rules;           ///< those that match come before all this
};

struct EndpointModel {
    std::uint8_t address = 0;
    TransferType type = TransferType::bulk;
    std::uint16_t maxPacketSize = 64;
    std::uint8_t interval = 0;
    Behaviour behaviour;

    bool isIn() const { return (address & 0x80U) != 0; }
};

/// Reports of a HID interface. Without a report descriptor of its own they have no ids.
struct HidModel {
    std::uint16_t inputBytes = 64;
    std::uint16_t outputBytes = 64;
    Bytes report;  ///< the report descriptor; empty: one of these two sizes
};

struct InterfaceModel {
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    std::uint8_t interfaceClass = 0;
    std::uint8_t subClass = 0;
    std::uint8_t protocol = 0;
    std::uint8_t stringIndex = 0;
    Bytes extra;  ///< class descriptors between the interface descriptor and its endpoints
    std::optional<HidModel> hid;
    std::vector<EndpointModel> endpoints;
};

struct ConfigurationModel {
    std::uint8_t value = 1;
    std::uint8_t attributes = 0x80;
    std::uint8_t maxPower = 50;
    std::uint8_t stringIndex = 0;
    std::vector<InterfaceModel> interfaces;
};

struct DeviceModel {
    std::string id;
    bool plugged = true;
    Speed speed = Speed::full;
    std::uint8_t bus = 1;
    std::string hub;                   ///< id of the hub that it is plugged into; empty: the root of its bus
    std::optional<std::uint8_t> port;  ///< of the hub; by default its address
    std::uint16_t bcdUsb = 0x0200;
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint16_t bcdDevice = 0x0100;
    std::uint8_t deviceClass = 0;
    std::uint8_t deviceSubClass = 0;
    std::uint8_t deviceProtocol = 0;
    std::uint8_t maxPacketSize0 = 64;
    std::uint8_t manufacturerIndex = 0;
    std::uint8_t productIndex = 0;
    std::uint8_t serialIndex = 0;
    std::string serial;
    std::map<std::uint8_t, Bytes> strings;  ///< whole descriptors by index; 0 is the table of languages
    std::vector<ConfigurationModel> configurations;
    std::uint8_t activeConfiguration = 0;
    std::optional<Bytes> rawDeviceDescriptor;
    std::vector<Bytes> rawConfigurationDescriptors;
    std::vector<Rule> control;  ///< rules for control requests
    std::string state;          ///< of the rules, at the plug
    std::map<std::string, int> hostFailures;

    const ConfigurationModel* configuration(std::uint8_t value) const;
};

/// Throws Wrong.
DeviceModel readDevice(const nlohmann::json& device);
/// Visits the endpoints in the JSON of a device, in all its configurations and settings.
void forEachEndpoint(nlohmann::json& device, const std::function<void(nlohmann::json&)>& visit);

/// The descriptors that the device returns to a host; raw ones of the scenario take precedence.
Bytes deviceDescriptor(const DeviceModel& device);
std::vector<Bytes> configurationDescriptors(const DeviceModel& device);
/// The descriptors of a HID interface: the class descriptor that follows the interface descriptor, and the
/// report descriptor.
Bytes hidDescriptor(const HidModel& hid);
Bytes reportDescriptor(const HidModel& hid);
/// The string descriptor of a UTF-8 text, cut to the longest that a descriptor can hold.
Bytes stringDescriptor(const std::string& utf8);

}  // namespace simbus
