#pragma once

#include <cstdint>

/// As long as it lives, libusb tells the library that every device's active configuration has this total
/// length, whatever the device itself says: the linker leads the program's calls of
/// libusb_get_active_config_descriptor here. So a device can claim what libusb's own parser would refuse. One
/// at a time.
class FakeConfiguration {
 public:
    explicit FakeConfiguration(uint16_t totalLength);
    ~FakeConfiguration();
    FakeConfiguration(const FakeConfiguration&) = delete;
    FakeConfiguration& operator=(const FakeConfiguration&) = delete;
};
