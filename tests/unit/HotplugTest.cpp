// Arrivals and removals: the watches, the callback and the event thread.
#include <gmock/gmock.h>
#include <libusb.h>

#include <numeric>

#include "BackgroundCall.h"
#include "CallArguments.h"
#include "FakeClock.h"
#include "HotplugUsb/HotplugUsb.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"
#include "UsbTest.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int32_t kOtherVendor = 0x1234;

class Hotplug : public UsbTest {
 protected:
    /// "tool" of kVendor and "other" of kOtherVendor, both unplugged.
    void startEmpty() {
        startSession({deviceJson("tool", R"({"plugged":false})"),
                      deviceJson("other", R"({"plugged":false,"vendorId":"0x1234"})")});
    }
    /// Plugs in "other" and waits for its event. Events arrive in order, so all earlier ones have been
    /// handled then.
    void handleEarlierEvents() {
        const uint32_t list = createList({kOtherVendor});
        plugAndWait("other", list);
    }
    static std::string hex(int32_t vendorId) {
        char text[16];
        std::snprintf(text, sizeof text, "%x", static_cast<unsigned int>(vendorId));
        return text;
    }
    static std::string unregisterLine(int32_t vendorId) {
        return "[unregisterForHotplug]: callbackHandle: " + std::to_string(g_hotPlugCallback.at(vendorId)) +
               " for vendor_id: " + hex(vendorId);
    }
};

}  // namespace

TEST_F(Hotplug, StartsWithNothing) {
    EXPECT_THAT(g_hotPlugCallback, IsEmpty());
    EXPECT_FALSE(g_eventLoopRunning.load());
    EXPECT_FALSE(g_eventLoopThread.joinable());
}

TEST_F(Hotplug, WatchesAVendorOnce) {
    startEmpty();
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, registerForHotplug(context, kVendor)); });
    EXPECT_THAT(lines, ElementsAre("[registerForHotplug]: registered callback " +
                                   std::to_string(g_hotPlugCallback.at(kVendor)) + " for vendor: 6a5c"));
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(-1, registerForHotplug(context, kVendor)); }), IsEmpty());
    EXPECT_EQ(1U, callsOf("libusb_hotplug_register_callback"));
}

TEST_F(Hotplug, TwoListsOfAVendorShareOneWatch) {
    startEmpty();
    createList({kVendor});
    createList({kVendor});
    createList({kVendor, kSecondVendor});
    EXPECT_EQ(2U, callsOf("libusb_hotplug_register_callback"));
    EXPECT_EQ(2U, g_hotPlugCallback.size());
}

TEST_F(Hotplug, WatchesAtMostSixteenVendorsOfAList) {
    startEmpty();
    std::vector<int32_t> ids(20);
    std::iota(ids.begin(), ids.end(), 1);
    createList(ids);
    EXPECT_EQ(16U, g_hotPlugCallback.size());
    EXPECT_EQ(16, g_hotPlugCallback.rbegin()->first);
}

TEST_F(Hotplug, WatchesTheIdsInTheOrderGiven) {
    startEmpty();
    const auto lines = debugLinesOf([&] { createList({3, 1, 2}); });
    std::vector<std::string> vendors;
    for (const std::string& line : lines) {
        if (line.find("[registerForHotplug]") == 0) {
            vendors.push_back(line.substr(line.find("vendor: ")));
        }
    }
    EXPECT_THAT(vendors, ElementsAre("vendor: 3", "vendor: 1", "vendor: 2"));
}

TEST_F(Hotplug, AWatchThatLibusbRefusesIsLogged) {
    startEmpty();
    bus.failCall("libusb_hotplug_register_callback", 1, LIBUSB_ERROR_NO_MEM);
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-1, registerForHotplug(context, kVendor)); });
    EXPECT_THAT(lines, ElementsAre("Error registering hotplug callback"));
    EXPECT_THAT(g_hotPlugCallback, IsEmpty());
    EXPECT_EQ(0, registerForHotplug(context, kVendor));
}

TEST_F(Hotplug, AListIsMadeAllTheSameWhenItsWatchFails) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_hotplug_register_callback", 1, LIBUSB_ERROR_NO_MEM);
    const uint32_t list = createList({kVendor});
    EXPECT_STREQ("tool", record(list, 0).sSerialNumber);
}

TEST_F(Hotplug, AnArrivalFlagsTheListAndAnUpdateTakesTheFlagDown) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    EXPECT_FALSE(isFlagged(list));
    plugAndWait("tool", list);
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(list, 0)) << "an event changes no list by itself";
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
    EXPECT_FALSE(isFlagged(list));
    EXPECT_STREQ("tool", record(list, 0).sSerialNumber);
}

TEST_F(Hotplug, ARemovalFlagsTheList) {
    startSession({deviceJson("tool")});
    const uint32_t list = createList({kVendor});
    unplugAndWait("tool", list);
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
    EXPECT_EQ(0U, record(list, 0).isPresent);
}

TEST_F(Hotplug, DevicesThatWereThereRaiseNoEvent) {
    startSession({deviceJson("tool"), deviceJson("other", R"({"plugged":false,"vendorId":"0x1234"})")});
    const uint32_t list = createList({kVendor});
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(list));
}

TEST_F(Hotplug, OnlyTheFirstListOfAVendorIsFlagged) {
    startEmpty();
    const uint32_t first = createList({kVendor});
    const uint32_t second = createList({kVendor, kSecondVendor});
    plugAndWait("tool", first);
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(second));
}

TEST_F(Hotplug, AReleasedListStillTakesTheEvent) {
    startEmpty();
    const uint32_t first = createList({kVendor});
    LibUSB_ReleaseDeviceList(first);
    const uint32_t second = createList({kVendor});
    ASSERT_NE(first, second);
    plugAndWait("tool", first);
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(second));
}

TEST_F(Hotplug, AVendorThatNobodyWatchesRaisesNothing) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    bus.plug("other");
    bus.unplug("other");
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(list));
}

TEST_F(Hotplug, EventsComeWhileAThreadWaitsInATransfer) {
    startSession({deviceJson("tool"), deviceJson("two", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    deinitHotplugUsb();  // only the thread in the transfer handles events
    auto& entry = record(list, 0);
    ASSERT_EQ(0, LibUSB_OpenDevice(&entry));
    uint8_t bytes[64] = {};
    BackgroundCall read([&] { return LibUSB_ReadBulkPipe(&entry, 0x84, sizeof bytes, 0, bytes); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x84) == 1; }));
    plugAndWait("two", list);
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&entry, 0x84));
    EXPECT_EQ(0, read.result());
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
    EXPECT_STREQ("two", record(list, 1).sSerialNumber);
}

TEST_F(Hotplug, TheCallbackTellsLibusbsCodeWhenADescriptorCannotBeRead) {
    startSession({deviceJson("tool")});
    const uint32_t list = createList({kVendor});
    libusb_device* device = record(list, 0).pDevice;
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(LIBUSB_ERROR_IO, hotplug_callback(context, device, 1, nullptr));
    EXPECT_FALSE(isFlagged(list));
    EXPECT_EQ(0, hotplug_callback(context, device, 2, nullptr));
    EXPECT_TRUE(isFlagged(list));
}

TEST_F(Hotplug, TheCallbackOfAVendorWithoutAListChangesNothing) {
    startSession({deviceJson("tool")});
    const uint32_t list = LibUSB_CreateDeviceList(context, 0xFFFFFFFF);
    EXPECT_EQ(0, hotplug_callback(context, record(list, 0).pDevice, 1, nullptr));
    EXPECT_FALSE(isFlagged(list));
    LibUSB_ReleaseDeviceList(list);
}

TEST_F(Hotplug, ADescriptorThatCannotBeReadEndsTheWatchForGood) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    bus.clearCalls();
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_IO);
    bus.plug("tool");
    ASSERT_TRUE(eventually([&] { return callsOf("libusb_get_device_descriptor") == 1; }));
    bus.unplug("tool");
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(list));
    EXPECT_EQ(1U, g_hotPlugCallback.count(kVendor)) << "so it is not registered again";
    EXPECT_EQ(-1, registerForHotplug(context, kVendor));
}

TEST_F(Hotplug, EndsOneWatchButRemembersTheVendor) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    const std::string line = unregisterLine(kVendor);
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(0, unregisterForHotplug(context, kVendor)); }),
                ElementsAre(line));
    EXPECT_EQ(1U, callsOf("libusb_hotplug_deregister_callback"));
    EXPECT_EQ(-1, registerForHotplug(context, kVendor));
    bus.plug("tool");
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(list));
}

TEST_F(Hotplug, EndsNoWatchOfAVendorThatIsNotWatched) {
    startEmpty();
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(-1, unregisterForHotplug(context, kVendor)); }), IsEmpty());
    EXPECT_EQ(0U, callsOf("libusb_hotplug_deregister_callback"));
}

TEST_F(Hotplug, EndsAllWatchesInAscendingOrder) {
    startEmpty();
    createList({kSecondVendor, kOtherVendor, kVendor});
    const std::vector<std::string> expected{unregisterLine(kOtherVendor), unregisterLine(kVendor),
                                            unregisterLine(kSecondVendor)};
    EXPECT_EQ(expected, debugLinesOf([&] { releaseHotplugCallbacks(context); }));
    EXPECT_THAT(g_hotPlugCallback, IsEmpty());
    EXPECT_EQ(3U, callsOf("libusb_hotplug_deregister_callback"));
    EXPECT_THAT(debugLinesOf([&] { releaseHotplugCallbacks(context); }), IsEmpty());
    EXPECT_EQ(0, registerForHotplug(context, kVendor)) << "a later list watches again";
}

TEST_F(Hotplug, ASecondStartIsRefusedAndStartsNothing) {
    startEmpty();
    const auto thread = g_eventLoopThread.get_id();
    EXPECT_EQ(-1, initHotplugUsb(context));
    EXPECT_EQ(thread, g_eventLoopThread.get_id());
    EXPECT_TRUE(g_eventLoopRunning.load());
}

TEST_F(Hotplug, StopsAndStartsAgain) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    for (int round = 0; round < 3; ++round) {
        deinitHotplugUsb();
        EXPECT_FALSE(g_eventLoopRunning.load());
        EXPECT_FALSE(g_eventLoopThread.joinable());
        EXPECT_EQ(0, initHotplugUsb(context));
        EXPECT_TRUE(g_eventLoopRunning.load());
    }
    plugAndWait("tool", list);
}

TEST_F(Hotplug, AStopWithoutARunningLoopDoesNothing) {
    deinitHotplugUsb();
    EXPECT_FALSE(g_eventLoopThread.joinable());
    startEmpty();
    deinitHotplugUsb();
    deinitHotplugUsb();
    EXPECT_FALSE(g_eventLoopThread.joinable());
}

TEST_F(Hotplug, StopsSoonEvenWhileTheLoopSleeps) {
    startEmpty();
    const auto before = std::chrono::steady_clock::now();
    deinitHotplugUsb();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5)) << "about a second at most";
}

TEST_F(Hotplug, AStopInterruptsTheHandlingOfEventsRatherThanWaitForItsSecond) {
    startEmpty();
    const uint64_t before = callsOf("libusb_interrupt_event_handler");
    deinitHotplugUsb();
    EXPECT_EQ(before + 1, callsOf("libusb_interrupt_event_handler"));
}

TEST_F(Hotplug, AnErrorOfEventHandlingIsLoggedAndTheLoopGoesOn) {
    const auto lines = debugLinesOf([&] {
        bus.failCall("libusb_handle_events_timeout_completed", 1, LIBUSB_ERROR_IO, 2);
        startEmpty();
        const uint32_t list = createList({kVendor});
        plugAndWait("tool", list);
        LibUSB_ReleaseDeviceList(list);
        endSession();
    });
    EXPECT_EQ(2, std::count(lines.begin(), lines.end(), "libusb_handle_events() failed: LIBUSB_ERROR_IO"));
}

TEST_F(Hotplug, ALoopWithoutAContextIdlesAndAdoptsTheNext) {
    const auto lines = debugLinesOf([&] {
        EXPECT_EQ(0, initHotplugUsb(nullptr));
        EXPECT_EQ(-1, initHotplugUsb(nullptr));
    });
    EXPECT_THAT(lines, IsEmpty()) << "idling is no error";
    EXPECT_THAT(bus.calls(), IsEmpty()) << "a null context never reaches libusb";
    startEmpty();
    plugAndWait("tool", createList({kVendor}));
}

TEST_F(Hotplug, ANullContextIsNotWatched) {
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-1, registerForHotplug(nullptr, kVendor)); });
    EXPECT_THAT(lines, ElementsAre("Error registering hotplug callback"));
    EXPECT_THAT(bus.calls(), IsEmpty());
}

TEST_F(Hotplug, ALoopWithoutAContextSleepsUntilItIsWanted) {
    startEmpty();
    const uint32_t list = createList({kVendor});
    deinitHotplugUsb();
    FakeClock clock;
    std::atomic<int> pauses{0};
    clock.beforeSleep = [&, test = std::this_thread::get_id()](const timespec& /*pause*/) {
        pauses += std::this_thread::get_id() == test ? 0 : 1;
    };
    const auto lines = debugLinesOf([&] {
        EXPECT_EQ(0, initHotplugUsb(nullptr));
        EXPECT_FALSE(eventually([&] { return pauses > 0; }, std::chrono::milliseconds(100)));
        EXPECT_EQ(-1, initHotplugUsb(context));
        plugAndWait("tool", list);
        deinitHotplugUsb();
    });
    EXPECT_THAT(lines, IsEmpty());
}

TEST_F(Hotplug, TheLoopPausesAfterEachError) {
    startEmpty();
    deinitHotplugUsb();
    bus.clearCalls();
    bus.failCall("libusb_handle_events_timeout_completed", 1, LIBUSB_ERROR_IO, 1'000'000);
    FakeClock clock;
    std::vector<long> pauses;
    clock.beforeSleep = [&, test = std::this_thread::get_id()](const timespec& pause) {
        if (std::this_thread::get_id() != test) {
            pauses.push_back(pause.tv_nsec / 1'000'000);
        }
    };
    EXPECT_EQ(0, initHotplugUsb(context));
    EXPECT_TRUE(eventually([&] { return callsOf("libusb_handle_events_timeout_completed") >= 5; }));
    deinitHotplugUsb();
    EXPECT_EQ(callsOf("libusb_handle_events_timeout_completed"), pauses.size());
    EXPECT_THAT(pauses, Each(5)) << "milliseconds";
}

TEST_F(Hotplug, TheLoopHandlesEventsForASecondAtATime) {
    const CallArguments arguments;
    startEmpty();
    const auto calls = [] { return CallArguments::of("libusb_handle_events_timeout_completed"); };
    ASSERT_TRUE(eventually([&] { return !calls().empty(); }));
    deinitHotplugUsb();
    EXPECT_THAT(calls(), Each(ElementsAre(1, 0)));
}

TEST_F(Hotplug, AListWhoseWatchFailedStaysAsItIs) {
    startEmpty();
    bus.failCall("libusb_hotplug_register_callback", 1, LIBUSB_ERROR_NO_MEM);
    const uint32_t list = createList({kVendor});
    bus.plug("tool");
    handleEarlierEvents();
    EXPECT_FALSE(isFlagged(list));
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(list, 0));
}
