#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "FakeHid.h"
#include "hid/HIDAccess.h"

/// A test on one HIDAccess over the HID interface in memory. By default all waits for a read thread that does
/// not answer are short.
class HidTest : public ::testing::Test {
 protected:
    static constexpr uint16_t kHidVendor = 0x6A5C;
    static constexpr uint16_t kHidProduct = 0x3001;

    ~HidTest() override;

    /// Opens it with reports of `packetSize` bytes and waits until the read thread runs.
    void open(int packetSize = 64);
    void waitForState(int32_t state) const;
    int32_t threadState() const;
    /// The number at the start of the next report in the ring (FakeHid::deliverNumber); -1 for an empty ring.
    int64_t nextNumber();
    /// Calls Read for `size` bytes, into `received`.
    int read(int size, int timeout = 10'000);
    int write(const std::vector<uint8_t>& bytes, int timeout = 1'000);

    FakeHid hid;
    /// Replaced by tests of other devices.
    std::unique_ptr<HIDAccess, void (*)(HIDAccess*)> access{
        newHIDAccess(kHidVendor, kHidProduct, "HID0001", 64, 0x5A), &deleteHIDAccess};
    std::vector<uint8_t> received;

 private:
    const int64_t waitBefore_ = g_hidThreadWaitMs;
};

/// The number of reports that the ring holds before it drops the oldest.
constexpr int32_t ringCapacity(int32_t packetSize) {
    return (kRingBytes + packetSize - 1) / packetSize - 1;
}
