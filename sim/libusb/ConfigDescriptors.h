// Configuration descriptors, parsed into libusb's structures.
#pragma once

#include <vector>

#include "LibusbApi.h"

namespace sim {

struct AlternateStore {
    libusb_interface_descriptor shown{};
    simbus::Bytes extra;
    std::vector<libusb_endpoint_descriptor> endpoints;
    std::vector<simbus::Bytes> endpointExtras;
};

struct InterfaceStore {
    std::vector<AlternateStore> alternates;
    std::vector<libusb_interface_descriptor> shown;
};

/// A descriptor that a program holds: `shown` and everything it points to.
struct ConfigRecord {
    libusb_config_descriptor shown{};
    simbus::Bytes extra;
    std::vector<InterfaceStore> interfaces;
    std::vector<libusb_interface> shownInterfaces;
};

/// Parses the descriptor of a device, whatever its bytes are, into `record`. Returns LIBUSB_SUCCESS or
/// LIBUSB_ERROR_IO. A descriptor that is cut short at the end is left out; an impossible length makes the
/// whole configuration invalid.
int parseConfiguration(const simbus::Bytes& bytes, ConfigRecord& record);

/// The descriptor of the configuration with that value; null when there is none.
const simbus::Bytes* configurationOf(const simbus::DeviceInfo& info, std::uint8_t value);

}  // namespace sim
