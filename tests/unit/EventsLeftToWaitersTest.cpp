// The event thread leaves events to the waiters for a moment after a wait has begun.
#include <gmock/gmock.h>
#include <libusb.h>

#include <atomic>
#include <thread>
#include <vector>

#include "FakeClock.h"
#include "HotplugUsb/HotplugUsb.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"

using ::testing::ElementsAre;

namespace {

/// The event thread is stopped; the test checks for announced waits itself.
class EventsLeftToWaiters : public IoTest {
 protected:
    void openWithoutEventThread() {
        openTool();
        deinitHotplugUsb();
        leaveEventsToWaiters();  // the wait that the open announced
    }
};

TEST_F(EventsLeftToWaiters, OnceForEachAnnouncementForTenMilliseconds) {
    FakeClock clock;
    std::vector<long> pauses;
    clock.beforeSleep = [&](const timespec& pause) { pauses.push_back(pause.tv_nsec / 1'000'000); };
    announceWait();
    announceWait();
    EXPECT_TRUE(leaveEventsToWaiters());
    EXPECT_FALSE(leaveEventsToWaiters());
    EXPECT_THAT(pauses, ElementsAre(10));
}

TEST_F(EventsLeftToWaiters, AfterATransfer) {
    openWithoutEventThread();
    EXPECT_FALSE(leaveEventsToWaiters());
    uint8_t bytes[8] = {};
    ASSERT_EQ(8, LibUSB_ReadBulkPipe(&tool(), 0x83, 8, 1000, bytes));
    EXPECT_TRUE(leaveEventsToWaiters());
}

TEST_F(EventsLeftToWaiters, AfterADescriptorWasRead) {
    openWithoutEventThread();
    LibUSB_CreateDeviceList(context, 0xFFFFFFFF);
    EXPECT_TRUE(leaveEventsToWaiters());
}

TEST_F(EventsLeftToWaiters, ByTheEventThread) {
    FakeClock clock;
    std::atomic<int> pauses{0};
    clock.beforeSleep = [&, test = std::this_thread::get_id()](const timespec& pause) {
        pauses += std::this_thread::get_id() != test && pause.tv_nsec == 10'000'000 ? 1 : 0;
    };
    openTool();
    EXPECT_TRUE(eventually([&] {
        announceWait();
        libusb_interrupt_event_handler(context);
        return pauses >= 2;
    }));
    deinitHotplugUsb();
}

}  // namespace
