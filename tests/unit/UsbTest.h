#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "bus/Bus.h"
#include "ground/DeviceRecords.h"

/// A vendor whose tools the tests plug in, and the other one of the maker.
constexpr int32_t kVendor = 0x6A5C;
constexpr int32_t kSecondVendor = 0x6A5D;

/// One device of a scenario: vendor kVendor, product 0x1001, class 0, manufacturer "Talvane", product "Echo
/// Tool", the serial number the same text as its id, one vendor-specific interface with an echo pair of bulk
/// endpoints 0x01/0x81, an echo pair of interrupt endpoints 0x02/0x82, and the bulk endpoints 0x03 sink, 0x83
/// source, 0x04 and 0x84 silent, 0x05 and 0x85 stalling, all of 64 bytes. `overrides` is a JSON merge patch
/// on it.
std::string deviceJson(const std::string& id, const std::string& overrides = "{}");
/// A scenario of these devices.
std::string scenarioOf(const std::vector<std::string>& devices);

/// Every line that `action` writes to standard error with the debug log switched on, without the stamps.
std::vector<std::string> debugLinesOf(const std::function<void()>& action);
/// All that `action` writes to standard error, with or without the debug log, as it is.
std::string standardErrorOf(const std::function<void()>& action);
/// The text with printf's %p of the pointer, as the log shows it.
std::string pointerText(const void* pointer);

/// Waits until the condition holds; false when it does not within the deadline. Sleeps in between, but never
/// instead.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline = std::chrono::seconds(30));

/// A test on the simulated bus. Ends the session that it started, and fails when the drop-in libusb found
/// anything wrong in the calls of the library.
class UsbTest : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    /// Puts these devices on the bus, starts a session in `context` (LibUSB_Initialize) and expects it to
    /// work.
    void startSession(std::initializer_list<std::string> devices);
    /// LibUSB_Release on `context`; called by TearDown when a session runs.
    void endSession();
    /// LibUSB_CreateDeviceList2 on `context`; the list is released by TearDown when the session still runs
    /// then.
    uint32_t createList(const std::vector<int32_t>& vendorIds);
    /// The record at an index of a list; fails the test when there is none.
    tagUSB_DEVICE_ACCESS_ENTRY& record(uint32_t list, uint32_t index);
    /// A list of kVendor, its first record opened.
    tagUSB_DEVICE_ACCESS_ENTRY& openFirst();
    /// Unplugs or plugs and waits until the first list that watches its vendor is flagged.
    void unplugAndWait(const std::string& id, uint32_t list);
    void plugAndWait(const std::string& id, uint32_t list);
    bool isFlagged(uint32_t list);
    /// How often a function of the drop-in libusb was called since the session started (or since
    /// bus.clearCalls()).
    uint64_t callsOf(const std::string& function);

    /// The simulated bus.
    simbus::Bus& bus = simbus::Bus::instance();
    libusb_context* context = nullptr;
    bool sessionRuns = false;
    /// Set by tests of misuse: the violations that the drop-in reports for it are then for the test to look
    /// at.
    bool expectsViolations = false;

 private:
    std::vector<uint32_t> lists_;
};
