#pragma once

#include <cstdint>

/// For its lifetime, libusb reports this total length for the active configuration of every device, whatever
/// the device itself reports: the linker redirects the program's calls of libusb_get_active_config_descriptor
/// here. So a device can claim what libusb's own parser would refuse. One object at a time.
class FakeConfiguration {
 public:
    explicit FakeConfiguration(uint16_t totalLength);
    ~FakeConfiguration();
    FakeConfiguration(const FakeConfiguration&) = delete;
    FakeConfiguration& operator=(const FakeConfiguration&) = delete;
};
