#pragma once

#include <cstdint>

#include "ground/DeviceRecords.h"

constexpr int32_t kBenchVendor = 0x6A5C;
constexpr int32_t kBenchTimeoutMs = 30'000;

/// A session of the library with a list of the benchmarks' devices. Ends the program if that is not possible.
class Library {
 public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    uint32_t list() const { return list_; }
    libusb_context* context() const { return context_; }
    /// Opens the device with this serial number; ends the program if that is not possible.
    tagUSB_DEVICE_ACCESS_ENTRY* open(const char* serialNumber);

 private:
    libusb_context* context_ = nullptr;
    uint32_t list_ = 0;
};

/// Ends the program with this text on standard error, unless `condition` holds.
void demand(bool condition, const char* what);
