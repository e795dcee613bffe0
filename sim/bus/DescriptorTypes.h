// The types of USB descriptors, as requests and the descriptors themselves have them.
#pragma once

#include <cstdint>

namespace simbus {

enum DescriptorType : std::uint8_t {
    deviceType = 1,
    configurationType = 2,
    stringType = 3,
    interfaceType = 4,
    endpointType = 5,
    hidType = 0x21,
    reportType = 0x22
};

}  // namespace simbus
