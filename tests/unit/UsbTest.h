#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "bus/Bus.h"
#include "ground/DeviceRecords.h"

/// The vendor of most test devices, and the maker's other vendor id.
constexpr int32_t kVendor = 0x6A5C;
constexpr int32_t kSecondVendor = 0x6A5D;

/// One device of a scenario: vendor kVendor, product 0x1001, class 0, manufacturer "Talvane", product "Echo
/// Tool", its id as serial number, one vendor-specific interface with an echo pair of bulk endpoints
/// 0x01/0x81, an echo pair of interrupt endpoints 0x02/0x82, and the bulk endpoints 0x03 sink, 0x83 source,
/// 0x04 and 0x84 silent, 0x05 and 0x85 stalling, all of 64 bytes. `overrides` is a JSON merge patch on it.
std::string deviceJson(const std::string& id, const std::string& overrides = "{}");
/// A scenario of these devices.
std::string scenarioOf(const std::vector<std::string>& devices);

/// The lines that `action` writes to standard error with the debug log switched on, without their stamps.
std::vector<std::string> debugLinesOf(const std::function<void()>& action);
/// Everything that `action` writes to standard error, unchanged, with or without the debug log.
std::string standardErrorOf(const std::function<void()>& action);
/// The pointer as printf's %p formats it in the log.
std::string pointerText(const void* pointer);

/// Waits until the condition holds; returns false when it does not within the deadline. Sleeps only between
/// checks.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline = std::chrono::seconds(30));

/// A test on the simulated bus. TearDown ends the session and fails the test when the drop-in libusb has
/// found a wrong call of the library.
class UsbTest : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    /// Puts these devices on the bus, starts a session in `context` (LibUSB_Initialize) and expects success.
    void startSession(std::initializer_list<std::string> devices);
    /// LibUSB_Release on `context`; called by TearDown while a session is open.
    void endSession();
    /// LibUSB_CreateDeviceList2 on `context`; TearDown releases the list if the session is still open.
    uint32_t createList(const std::vector<int32_t>& vendorIds);
    /// The record at an index of a list; fails the test when there is none.
    tagUSB_DEVICE_ACCESS_ENTRY& record(uint32_t list, uint32_t index);
    /// Creates a list of kVendor and opens its first record.
    tagUSB_DEVICE_ACCESS_ENTRY& openFirst();
    /// Unplugs or plugs, and waits until the first list that watches the vendor is flagged.
    void unplugAndWait(const std::string& id, uint32_t list);
    void plugAndWait(const std::string& id, uint32_t list);
    bool isFlagged(uint32_t list);
    /// The number of calls of a function of the drop-in libusb since the session started (or since
    /// bus.clearCalls()).
    uint64_t callsOf(const std::string& function);

    /// The simulated bus.
    simbus::Bus& bus = simbus::Bus::instance();
    libusb_context* context = nullptr;
    bool sessionRuns = false;
    /// Set by tests of misuse, which check the violations that the drop-in reports themselves.
    bool expectsViolations = false;

 private:
    std::vector<uint32_t> lists_;
};
