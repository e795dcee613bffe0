// Use of a session that has ended, never began, or is never ended.
#include <gmock/gmock.h>
#include <libusb.h>
#include <pthread.h>

#include <chrono>
#include <cstdlib>
#include <memory>

#include "Gate.h"
#include "HidPlatformTest.h"
#include "HotplugUsb/HotplugUsb.h"
#include "IoTest.h"
#include "JniTest.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

/// For its lifetime no thread can be created: each would need a stack larger than the address space.
class NoThreads {
 public:
    NoThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, size_t{1} << 50);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

 private:
    pthread_attr_t before_{};
};

using SessionGuards = JniTest;

class EndedSession : public IoTest {
 protected:
    /// Makes every call on the record of an ended session; none may reach libusb.
    void expectRecordIsCutOff(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        bus.clearCalls();
        uint8_t bytes[16] = {};
        EXPECT_EQ(-109, LibUSB_ReadBulkPipe(&entry, 0x83, 4, 100, bytes));
        EXPECT_EQ(-109, LibUSB_WriteInterruptPipeEx(&entry, 0x02, 4, 100, bytes, 64, 0));
        EXPECT_EQ(-109, LibUSB_ReadControlPipe(&entry, 0, 100, bytes));
        EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&entry, 0x83));
        EXPECT_EQ(-109, LibUSB_ResetDevice(&entry));
        EXPECT_EQ(-109, LibUSB_CloseDevice(&entry));
        EXPECT_EQ(-107, LibUSB_OpenDevice(&entry));
        EXPECT_TRUE(bus.calls().empty()) << bus.calls().begin()->first;
    }
    /// Makes a read on each of two devices refuse to end while `end(list)` ends them.
    template <class End>
    void expectThreeSecondsForEachDevice(End end) {
        startSession({deviceJson("one"), deviceJson("two")});
        const uint32_t list = createList({kVendor});
        uint8_t bytes[2][64];
        const auto read = [&](uint32_t index) {
            EXPECT_EQ(0, LibUSB_OpenDevice(&record(list, index)));
            return std::make_unique<BackgroundCall>([&entry = record(list, index), buffer = bytes[index]] {
                return LibUSB_ReadBulkPipe(&entry, 0x84, 64, 0, buffer);
            });
        };
        const auto first = read(0);
        const auto second = read(1);
        ASSERT_TRUE(eventually([&] { return bus.pending("one", 0x84) + bus.pending("two", 0x84) == 2; }));
        bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, 1'000'000);
        const auto begin = std::chrono::steady_clock::now();
        end(list);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
        bus.unplug("one");
        bus.unplug("two");
        EXPECT_EQ(0, first->result());
        EXPECT_EQ(0, second->result());
        expectsViolations = true;  // leaks of `end`, by design
    }
};
using ReleasedList = EndedSession;

}  // namespace

TEST_F(SessionGuards, AThreadThatCannotBeMadeEndsTheStartedContext) {
    {
        const NoThreads none;
        EXPECT_EQ(-99, call(usbInitialize));
    }
    EXPECT_EQ(-1, g_SessionId);
    EXPECT_FALSE(g_eventLoopRunning.load());
    EXPECT_EQ(1U, callsOf("libusb_exit"));
    EXPECT_EQ(0, call(usbInitialize)) << "and the next start works";
}

TEST_F(SessionGuards, AReleaseWithoutASessionEndsNothing) {
    EXPECT_EQ(0, call(usbRelease, -1)) << "the id of no session is -1";
    openSession({});
    ASSERT_EQ(0, call(usbRelease, 0));
    bus.clearCalls();
    EXPECT_EQ(0, call(usbRelease, -1));
    EXPECT_TRUE(bus.calls().empty()) << "a dead context must not end twice";
}

TEST_F(SessionGuards, ListsMadeWithoutASessionStayEmptyAndNeverReachLibusb) {
    FakeIntArray ids({kVendor});
    EXPECT_EQ(0, call(usbCreateDeviceList2, -1, ids.java()));
    EXPECT_EQ(1, call(usbCreateDeviceList, -1, kVendor));
    EXPECT_TRUE(bus.calls().empty());
    openSession({deviceJson("tool")});
    ASSERT_EQ(0, call(usbRelease, 0));
    bus.clearCalls();
    const jint late = call(usbCreateDeviceList2, -1, ids.java());
    EXPECT_EQ(0, call(usbGetDeviceListCount, late));
    EXPECT_EQ(0, call(usbGetDeviceListCount, call(usbCreateDeviceList, -1, kVendor)));
    EXPECT_TRUE(bus.calls().empty()) << "the context of the session that ended is gone";
}

TEST_F(SessionGuards, AnUpdateOfAnEndedSessionsListDoesNothing) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    unplugAndWait("tool", static_cast<uint32_t>(list));
    ASSERT_EQ(0, call(usbRelease, 0));
    bus.clearCalls();
    EXPECT_EQ(0, call(usbUpdateDeviceList, list, 0));
    EXPECT_EQ(1, call(usbGetDeviceListCount, list));
    EXPECT_TRUE(bus.calls().empty());
}

TEST_F(SessionGuards, AListOfAnEndedSessionIsNotReusedByTheNext) {
    openSession({deviceJson("tool")});
    const jint old = listOfVendor();
    ASSERT_EQ(0, call(usbRelease, 0));
    ASSERT_EQ(0, call(usbInitialize));
    const jint fresh = listOfVendor();
    EXPECT_NE(old, fresh);
    EXPECT_EQ(0, call(usbOpenDevice, fresh, 0));
    EXPECT_EQ(-107, call(usbOpenDevice, old, 0));
}

TEST_F(SessionGuards, AnEventFlagsTheRunningSessionsListOnly) {
    // A new context is often at the address of the old one, whose list must not take its events.
    for (int session = 0; session < 5; ++session) {
        openSession({deviceJson("tool", R"({"plugged":false})")});
        const auto list = static_cast<uint32_t>(listOfVendor());
        plugAndWait("tool", list);
        ASSERT_EQ(0, call(usbRelease, 0));
    }
    for (uint32_t list = 0; list < 5; ++list) {
        EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(list, 0));
    }
}

TEST_F(SessionGuards, ManySessionsLeaveNothingBehind) {
    for (int session = 0; session < 20; ++session) {
        openSession({deviceJson("tool")});
        const jint list = listOfVendor();
        ASSERT_EQ(0, call(usbOpenDevice, list, 0));
        ASSERT_EQ(0, call(usbCloseDevice, list, 0));
        ASSERT_EQ(0, call(usbReleaseDeviceList, list));
        ASSERT_EQ(0, call(usbRelease, 0));
    }
    EXPECT_TRUE(g_refCount.empty());
    EXPECT_TRUE(g_hotPlugCallback.empty());
}

TEST_F(EndedSession, CutsOffAClosedRecord) {
    openTool();
    LibUSB_CloseDevice(&tool());
    endSession();
    expectRecordIsCutOff(tool());
}

TEST_F(EndedSession, CutsOffAnOpenRecord) {
    const int64_t transfers = bus.tally("transfers not freed");
    openTool();
    EXPECT_EQ(transfers + 32, bus.tally("transfers not freed"));
    endSession();
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
    EXPECT_EQ(transfers, bus.tally("transfers not freed"));
    EXPECT_EQ(nullptr, tool().hDevice);
    expectRecordIsCutOff(tool());
}

TEST_F(EndedSession, EndsATransferThatBlocks) {
    openTool();
    const auto read = blockedRead();
    endSession();
    EXPECT_EQ(0, read->result());
    expectRecordIsCutOff(tool());
}

TEST_F(EndedSession, StaysCutOffInTheNext) {
    openTool();
    endSession();
    ASSERT_EQ(0, LibUSB_Initialize(&context));
    sessionRuns = true;
    expectRecordIsCutOff(tool());
}

TEST_F(EndedSession, LetsItsListsBeReleased) {
    openTool();
    endSession();
    bus.clearCalls();
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(0));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(0, 0));
    EXPECT_TRUE(bus.calls().empty());
}

TEST_F(EndedSession, StillAnswersQueriesFromItsRecords) {
    openTool();
    endSession();
    EXPECT_EQ(&tool(), LibUSB_GetDeviceFromIndex(0, 0));
    EXPECT_STREQ("tool", tool().sSerialNumber);
}

TEST_F(EndedSession, KeepsAContextThatATransferDoesNotLeave) {
    openTool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, 1'000'000);
    endSession();
    EXPECT_EQ(0U, callsOf("libusb_exit")) << "nobody falls into a freed context";
    EXPECT_FALSE(read->hasReturned());
    bus.clearFaults();
    bus.clearCalls();
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, tool().lastResult);
    EXPECT_EQ(0U, callsOf("libusb_cancel_transfer"));
    bus.unplug("tool");
    EXPECT_EQ(0, read->result());
    bus.plug("tool");
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool())) << "its session is over, whatever came back since";
    EXPECT_EQ(0U, callsOf("libusb_open"));
    expectsViolations = true;  // handle, transfers and context are given up on purpose
}

TEST_F(EndedSession, WaitsThreeSecondsForEachDeviceThatATransferDoesNotLeave) {
    expectThreeSecondsForEachDevice([&](uint32_t /*list*/) { endSession(); });
}

TEST_F(ReleasedList, WaitsThreeSecondsForEachDeviceThatATransferDoesNotLeave) {
    expectThreeSecondsForEachDevice([](uint32_t list) { LibUSB_ReleaseDeviceList(list); });
}

TEST_F(EndedSession, KeepsAContextThatATransferOfARecordKeptAsideDoesNotLeave) {
    openTool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, 1'000'000);
    ASSERT_EQ(0, LibUSB_ReleaseDeviceList(0));
    endSession();
    EXPECT_EQ(0U, callsOf("libusb_exit"));
    EXPECT_FALSE(read->hasReturned());
    bus.unplug("tool");
    EXPECT_EQ(0, read->result());
    expectsViolations = true;  // handle, transfers and context are given up on purpose
}

bool g_hidDevicesHaveToBeClosed = false;

/// The objects that an open HID device holds in the platform, whichever it is.
int64_t hidObjects() {
    auto& bus = simbus::Bus::instance();
    return bus.tally("hid devices open") + bus.tally("I/O Kit objects in use");
}

/// Constructed before all other globals and therefore destroyed last.
struct LastLook {
    ~LastLook() {
        if (g_hidDevicesHaveToBeClosed && hidObjects() != 0) {
            _exit(1);
        }
    }
};
[[gnu::init_priority(101)]] LastLook g_lastLook;

class HidSessionGuardsDeathTest : public HidPlatformTest {
 protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        HidPlatformTest::SetUp();
    }
};

class SessionGuardsDeathTest : public JniTest {
 protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        JniTest::SetUp();
    }
};

TEST_F(SessionGuardsDeathTest, AProgramMayEndWithoutARelease) {
    const auto program = [&] {
        openSession({deviceJson("tool")});
        const jint list = listOfVendor();
        const jint opened = call(usbOpenDevice, list, 0);
        std::exit(opened == 0 ? 7 : 1);
    };
    EXPECT_EXIT(program(), ::testing::ExitedWithCode(7), "");
}

TEST_F(SessionGuardsDeathTest, AProgramMayEndWhileAnotherThreadIsInARelease) {
    const auto program = [&] {
        openSession({deviceJson("tool")});
        listOfVendor();
        Gate gate;  // the event thread does not end before the program begins to end
        bus.onCall("libusb_handle_events_timeout_completed", [&gate] { gate.pass(); });
        if (!eventually([&] {
                libusb_interrupt_event_handler(g_pContext);
                return gate.arrivals() == 1;
            })) {
            std::exit(1);
        }
        std::thread([this] { call(usbRelease, 0); }).detach();
        if (!eventually([] { return !g_eventLoopRunning.load(); })) {
            std::exit(1);
        }
        std::thread([&gate] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            gate.open();
        }).detach();
        std::exit(7);
    };
    EXPECT_EXIT(program(), ::testing::ExitedWithCode(7), "");
}

TEST_F(HidSessionGuardsDeathTest, AProgramThatEndsClosesItsHidDevices) {
    const auto program = [&] {
        openTool();
        g_hidDevicesHaveToBeClosed = hidObjects() != 0;
        std::exit(g_hidDevicesHaveToBeClosed ? 7 : 1);
    };
    EXPECT_EXIT(program(), ::testing::ExitedWithCode(7), "");
}

TEST_F(SessionGuardsDeathTest, AProgramMayEndAfterAStartThatFailed) {
    const auto program = [&] {
        bus.failCall("libusb_init", 1, -99);
        call(usbInitialize);
        std::exit(g_eventLoopRunning.load() ? 7 : 1);
    };
    EXPECT_EXIT(program(), ::testing::ExitedWithCode(7), "");
}
