// Configuration descriptors, taken apart the way the library hands them out.
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

// One descriptor that a program holds: `shown`, and all that it points to.
struct ConfigRecord {
    libusb_config_descriptor shown{};
    simbus::Bytes extra;
    std::vector<InterfaceStore> interfaces;
    std::vector<libusb_interface> shownInterfaces;
};

// Takes apart what a device gave, whatever it is; fills `record` and answers LIBUSB_SUCCESS or
// LIBUSB_ERROR_IO. What is cut short at the end is left out; a length that leads nowhere makes the whole
// descriptor bad.
int parseConfiguration(const simbus::Bytes& bytes, ConfigRecord& record);

}  // namespace sim
