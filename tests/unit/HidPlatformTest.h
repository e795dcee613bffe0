#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ListTest.h"

/// A HID device like that of deviceJson, with a single HID interface: reports of 64 bytes; what is written to
/// 0x01 comes back from 0x81.
std::string hidJson(const std::string& id, const std::string& overrides = "{}");

/// A test on HID devices of the simulated bus through the platform's own HID interface.
class HidPlatformTest : public ListTest {
 protected:
    void TearDown() override;

    /// Starts the session with a HID device "tool" and opens it; TearDown closes it.
    void openTool(const std::string& overrides = "{}");
    /// Expects the read thread of a silent device to call this function at most once per period.
    void expectPeriods(const std::string& function, std::chrono::microseconds period);
    int32_t write(std::vector<uint8_t> bytes);
    /// LibUSB_ReadInterruptPipe into `received`.
    int32_t read(int32_t size, int32_t timeoutMs = 10'000);
    /// The platform's readConfigDescriptor in the session's context.
    int32_t readConfiguration(uint8_t* buffer, int32_t size, uint16_t vendorId = kVendor,
                              uint16_t productId = 0x1001);
    static std::vector<int32_t> marksOf(uint32_t list);
    static std::vector<uint8_t> counting(size_t count);

    tagUSB_DEVICE_ACCESS_ENTRY* tool_ = nullptr;
    std::vector<uint8_t> received;
};
