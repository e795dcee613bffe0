// Descriptor bytes made from a device model.
#include <algorithm>
#include <set>

#include "DeviceModel.h"

namespace simbus {

namespace {

void put16(Bytes& bytes, unsigned value) {
    bytes.push_back(static_cast<std::uint8_t>(value & 0xFFU));
    bytes.push_back(static_cast<std::uint8_t>(value >> 8U));
}

void putEndpoint(Bytes& bytes, const EndpointModel& endpoint, Speed speed) {
    bytes.insert(bytes.end(), {7, 5, endpoint.address, static_cast<std::uint8_t>(endpoint.type)});
    put16(bytes, endpoint.maxPacketSize);
    bytes.push_back(endpoint.interval);
    if (speed == Speed::super) {
        bytes.insert(bytes.end(), {6, 0x30, 0, 0, 0, 0});  // hosts expect it after every endpoint
    }
}

void putInterface(Bytes& bytes, const InterfaceModel& interface, Speed speed) {
    bytes.insert(
        bytes.end(),
        {9, 4, interface.number, interface.alternate, static_cast<std::uint8_t>(interface.endpoints.size()),
         interface.interfaceClass, interface.subClass, interface.protocol, interface.stringIndex});
    if (interface.hid) {
        const Bytes hid = hidDescriptor(*interface.hid);
        bytes.insert(bytes.end(), hid.begin(), hid.end());
    }
    bytes.insert(bytes.end(), interface.extra.begin(), interface.extra.end());
    for (const auto& endpoint : interface.endpoints) {
        putEndpoint(bytes, endpoint, speed);
    }
}

Bytes configurationDescriptor(const ConfigurationModel& configuration, Speed speed) {
    std::set<std::uint8_t> numbers;
    for (const auto& interface : configuration.interfaces) {
        numbers.insert(interface.number);
    }
    Bytes bytes{9,
                2,
                0,
                0,
                static_cast<std::uint8_t>(numbers.size()),
                configuration.value,
                configuration.stringIndex,
                configuration.attributes,
                configuration.maxPower};
    for (const auto& interface : configuration.interfaces) {
        putInterface(bytes, interface, speed);
    }
    bytes[2] = static_cast<std::uint8_t>(bytes.size() & 0xFFU);
    bytes[3] = static_cast<std::uint8_t>(bytes.size() >> 8U);
    return bytes;
}

/// Returns the next character of well-formed UTF-8 (the JSON reader accepts no other) and moves `at` past it.
char32_t nextCharacter(const std::string& utf8, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(utf8[at++]);
    const int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t character = more == 0 ? lead : lead & (0x3FU >> static_cast<unsigned>(more));
    for (int i = 0; i < more && at < utf8.size(); ++i) {
        character = character << 6U | (static_cast<unsigned char>(utf8[at++]) & 0x3FU);
    }
    return character;
}

}  // namespace

Bytes deviceDescriptor(const DeviceModel& device) {
    if (device.rawDeviceDescriptor) {
        return *device.rawDeviceDescriptor;
    }
    Bytes bytes{18, 1};
    put16(bytes, device.bcdUsb);
    bytes.insert(bytes.end(),
                 {device.deviceClass, device.deviceSubClass, device.deviceProtocol, device.maxPacketSize0});
    put16(bytes, device.vendorId);
    put16(bytes, device.productId);
    put16(bytes, device.bcdDevice);
    const std::size_t configurations =
        std::max(device.configurations.size(), device.rawConfigurationDescriptors.size());
    bytes.insert(bytes.end(), {device.manufacturerIndex, device.productIndex, device.serialIndex,
                               static_cast<std::uint8_t>(configurations)});
    return bytes;
}

std::vector<Bytes> configurationDescriptors(const DeviceModel& device) {
    if (!device.rawConfigurationDescriptors.empty()) {
        return device.rawConfigurationDescriptors;
    }
    std::vector<Bytes> all;
    for (const auto& configuration : device.configurations) {
        all.push_back(configurationDescriptor(configuration, device.speed));
    }
    return all;
}

Bytes stringDescriptor(const std::string& utf8) {
    constexpr std::size_t kLongest = 254;  // the length byte must stay even
    Bytes bytes{2, 3};
    for (std::size_t at = 0; at < utf8.size() && bytes.size() < kLongest;) {
        const char32_t character = nextCharacter(utf8, at);
        if (character < 0x10000) {
            put16(bytes, character);
        } else if (bytes.size() + 4 <= kLongest) {
            put16(bytes, 0xD800U + ((character - 0x10000U) >> 10U));
            put16(bytes, 0xDC00U + ((character - 0x10000U) & 0x3FFU));
        } else {
            break;
        }
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

Bytes hidDescriptor(const HidModel& hid) {
    Bytes bytes{9, 0x21, 0x11, 0x01, 0, 1, 0x22};  // HID 1.11, no country, one report descriptor of ...
    put16(bytes, static_cast<unsigned>(reportDescriptor(hid).size()));
    return bytes;
}

/// Unless the model has its own: one application collection of a vendor-defined usage with input and output
/// bytes.
Bytes reportDescriptor(const HidModel& hid) {
    if (!hid.report.empty()) {
        return hid.report;
    }
    Bytes bytes{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF, 0x00, 0x75, 0x08};
    const auto putReport = [&](std::uint16_t count, std::uint8_t mainItem) {
        bytes.push_back(0x96);  // number of eight-bit fields
        put16(bytes, count);
        bytes.insert(bytes.end(), {0x09, 0x01, mainItem, 0x02});
    };
    putReport(hid.inputBytes, 0x81);
    putReport(hid.outputBytes, 0x91);
    bytes.push_back(0xC0);
    return bytes;
}

}  // namespace simbus
