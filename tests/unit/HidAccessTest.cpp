#include <gmock/gmock.h>

#include <atomic>

#include "BackgroundCall.h"
#include "FakeClock.h"
#include "FakeMemory.h"
#include "FakeThreads.h"
#include "HidTest.h"
#include "UsbTest.h"
#include "ground/SharedField.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class HidAccess : public HidTest {
 protected:
    void expectIsFreed() {
        const DeletionCount objects(sizeof(HIDAccessRecord));
        access.reset();
        EXPECT_EQ(1, DeletionCount::count());
    }
};

TEST_F(HidAccess, StartsClosedWithAnEmptyRing) {
    EXPECT_EQ(kHidVendor, access->idVendor);
    EXPECT_EQ(kHidProduct, access->idProduct);
    EXPECT_STREQ("HID0001", access->sSerialNumber);
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
    EXPECT_EQ(0, access->writeIndex);
    EXPECT_EQ(0, access->readIndex);
    EXPECT_EQ(kNoReadThread, threadState());
    EXPECT_EQ(64, access->packetSize);
    EXPECT_EQ(0x5A, access->fillValue);
}

TEST_F(HidAccess, TheReportBufferFollowsTheRing) {
    EXPECT_EQ(access->ringBuffer + kRingBytes, access->reportBuffer);
}

TEST_F(HidAccess, AnEmptySerialNumberStandsForAnyDevice) {
    access.reset(newHIDAccess(kHidVendor, kHidProduct, "", 64, 0x5A));
    open();
    EXPECT_EQ("6A5C:3001 ?", hid.opened());
}

TEST_F(HidAccess, OpensTheDeviceOfItsIdsAndSerialNumber) {
    open();
    EXPECT_EQ("6A5C:3001 HID0001", hid.opened());
    EXPECT_NE(nullptr, access->ppDeviceInterface);
}

TEST_F(HidAccess, OpenRefusesAnOpenObject) {
    open();
    EXPECT_EQ(-105, access->Open());
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start"));
}

TEST_F(HidAccess, OpenTellsADeviceThatIsNotThere) {
    hid.openResult = HidOpenResult::notFound;
    EXPECT_EQ(-131, access->Open());
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
}

TEST_F(HidAccess, OpenTellsADeviceThatDoesNotLetItIn) {
    hid.openResult = HidOpenResult::notOpenable;
    EXPECT_EQ(-107, access->Open());
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
    hid.openResult = HidOpenResult::opened;
    EXPECT_EQ(0, access->Open());
}

TEST_F(HidAccess, OpenWithoutAReadThreadClosesTheDeviceAgain) {
    {
        const NoThreads none;
        EXPECT_EQ(-140, access->Open());
    }
    EXPECT_THAT(hid.calls(), ElementsAre("open", "close"));
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
    EXPECT_EQ(0, access->Open());
}

TEST_F(HidAccess, OnlyTheMakersSecondVendorStartsWithReportsOf512Bytes) {
    open();
    EXPECT_EQ(64, access->packetSize);
    EXPECT_EQ(0x5A, access->fillValue);
    EXPECT_EQ(64, hid.inputLength());
    access->Close();
    access.reset(newHIDAccess(0x6A5D, kHidProduct, "HID0002", 64, 0x5A));
    open();
    EXPECT_EQ(512, access->packetSize);
    EXPECT_EQ(0, access->fillValue);
    EXPECT_EQ(512, hid.inputLength());
    EXPECT_EQ(3, write({1, 2, 3}));
    ASSERT_EQ(1U, hid.sent().size());
    FakeHid::Report expected(512);
    expected[0] = 1;
    expected[1] = 2;
    expected[2] = 3;
    EXPECT_EQ(expected, hid.sent()[0]);
}

TEST_F(HidAccess, AFailedOpenOfTheSecondVendorKeepsItsSettings) {
    access.reset(newHIDAccess(0x6A5D, kHidProduct, "HID0002", 64, 0x5A));
    hid.openResult = HidOpenResult::notOpenable;
    EXPECT_EQ(-107, access->Open());
    EXPECT_EQ(64, access->packetSize);
    EXPECT_EQ(0x5A, access->fillValue);
}

TEST_F(HidAccess, OpenWaitsForAnEarlierReadThread) {
    storeShared(access->threadState, kReadThreadEnded);
    int looks = 0;
    bool waited = false;
    {
        FakeClock clock;
        clock.getTimeOfDay = [&](timeval& time) {
            if (++looks == 3) {
                waited = hid.calls().empty();
                storeShared(access->threadState, kNoReadThread);
            }
            time = {1'000, 0};
            return 0;
        };
        EXPECT_EQ(0, access->Open());
    }
    EXPECT_TRUE(waited);
    waitForState(kReadThreadRuns);
}

TEST_F(HidAccess, OpenGoesOnWhenTheEarlierReadThreadNeverEnds) {
    g_hidThreadWaitMs = 1;
    storeShared(access->threadState, kReadThreadStops);
    EXPECT_EQ(0, access->Open());
    waitForState(kReadThreadEnded);  // the new thread finds a stop requested
}

TEST_F(HidAccess, TheWaitsLast20Seconds) {
    EXPECT_EQ(20'000, g_hidThreadWaitMs);
    storeShared(access->threadState, kReadThreadStops);
    const LookingClock clock;
    const int64_t before = clock.milliseconds;
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(before + 20'001, clock.milliseconds) << "one to know the end, and one for each millisecond";
    waitForState(kReadThreadEnded);
}

TEST_F(HidAccess, AClockThatIsSetBackMakesTheWaitsLonger) {
    g_hidThreadWaitMs = 500;
    storeShared(access->threadState, kReadThreadStops);
    ClockSetBack clock;
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(701, clock.looks) << "one to know the end, and one for each millisecond";
    waitForState(kReadThreadEnded);
}

TEST_F(HidAccess, CloseRefusesAClosedObject) {
    EXPECT_EQ(-109, access->Close());
    open();
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(-109, access->Close());
}

TEST_F(HidAccess, CloseStopsTheThreadThenTheCallersLoopThenTheDevice) {
    const ThreadEnds ends;
    open();
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1, ends.joined);
    EXPECT_EQ(0, ends.detached);
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stop", "stopCallersLoop", "close"));
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
    EXPECT_EQ(kNoReadThread, threadState());
}

TEST_F(HidAccess, CloseRightAfterOpenWaitsUntilTheThreadRuns) {
    std::atomic<int> looks{0};
    FakeClock clock;
    clock.getTimeOfDay = [&](timeval& time) {
        ++looks;
        time = {1'000, 0};
        return 0;
    };
    Gate gate;
    hid.onStartInput = [&] { gate.pass(); };
    ASSERT_EQ(0, access->Open());
    const int before = looks;
    BackgroundCall closing([this] { return access->Close(); });
    ASSERT_TRUE(eventually([&] { return gate.arrivals() == 1 && looks > before + 2; })) << "it waits";
    EXPECT_FALSE(closing.hasReturned());
    EXPECT_EQ(kNoReadThread, threadState());
    gate.open();
    EXPECT_EQ(0, closing.result());
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stop", "stopCallersLoop", "close"));
}

TEST_F(HidAccess, AStopAskedForBeforeTheThreadRunsIsNotLost) {
    Gate gate;
    std::atomic<int> periods{0};
    hid.onStartInput = [&] { gate.pass(); };
    hid.onRunPeriod = [&] { ++periods; };
    ASSERT_EQ(0, access->Open());
    storeShared(access->threadState, kReadThreadStops);
    gate.open();
    waitForState(kReadThreadEnded);
    EXPECT_EQ(0, periods);
    EXPECT_EQ(0, access->Close());
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stop", "stopCallersLoop", "close"));
}

TEST_F(HidAccess, AThreadThatCloseGaveUpLeavesTheNextOneAlone) {
    Gate gate;
    std::atomic<bool> held{true};
    hid.onStartInput = [&] {
        if (held.exchange(false)) {
            gate.pass();
        }
    };
    g_hidThreadWaitMs = 1;
    ASSERT_EQ(0, access->Open());
    ASSERT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(kNoReadThread, threadState());
    g_hidThreadWaitMs = 20'000;
    open();
    const auto before = hid.calls().size();
    gate.open();
    EXPECT_TRUE(eventually([&] { return hid.calls().size() == before + 2; }));  // startInput and stopInput
    EXPECT_EQ(kReadThreadRuns, threadState());
    EXPECT_EQ(0, access->Close());
}

TEST_F(HidAccess, AThreadThatCannotBeSetUpHasEndedAndCostsCloseNoWait) {
    hid.startsInput = false;
    ASSERT_EQ(0, access->Open());
    waitForState(kReadThreadEnded);
    EXPECT_EQ(-150, read(1, 20));
    EXPECT_EQ(0, access->Close());
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stopCallersLoop", "close"));
    hid.startsInput = true;
    open();
}

TEST_F(HidAccess, AStoppedEventSourceEndsTheThread) {
    open();
    hid.reportsStop = true;
    waitForState(kReadThreadEnded);
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stop"));
    EXPECT_EQ(0, access->Close());
}

TEST_F(HidAccess, CloseGoesOnWithoutAThreadThatDoesNotEnd) {
    const ThreadEnds ends;
    g_hidThreadWaitMs = 1;
    Gate gate;
    std::atomic<bool> hangs{false};
    hid.onRunPeriod = [&] {
        if (hangs) {
            gate.pass();
        }
    };
    open();
    hangs = true;
    ASSERT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(nullptr, access->ppDeviceInterface);
    EXPECT_EQ(-109, access->Close());
    EXPECT_EQ(0, ends.joined);
    EXPECT_EQ(1, ends.detached) << "it is given back when it ends";
    // The thread may still be using the device, so the device stays open.
    EXPECT_TRUE(hid.isOpen());
    EXPECT_THAT(hid.calls(), ElementsAre("open", "start", "stopCallersLoop"));
    gate.open();
    EXPECT_TRUE(eventually([&] { return hid.calls().back() == "stop"; }));
    EXPECT_EQ(kNoReadThread, threadState());
}

TEST_F(HidAccess, ReportsSurviveCloseAndTheNextOpen) {
    open();
    hid.deliverNumber(1);
    hid.deliverNumber(2);
    access->Close();
    EXPECT_EQ(1, nextNumber());
    open();
    hid.deliverNumber(3);
    EXPECT_EQ(2, nextNumber());
    EXPECT_EQ(3, nextNumber());
    EXPECT_EQ(-1, nextNumber());
}

TEST_F(HidAccess, SetPacketSizeTakes64To1024) {
    EXPECT_EQ(0, access->SetPacketSize(1024));
    EXPECT_EQ(-114, access->SetPacketSize(1025));
    EXPECT_EQ(1024, access->packetSize);
    EXPECT_EQ(0, access->SetPacketSize(64));
    EXPECT_EQ(-114, access->SetPacketSize(63));
    EXPECT_EQ(-114, access->SetPacketSize(-1));
    EXPECT_EQ(64, access->packetSize);
}

TEST_F(HidAccess, SetFillValueTakesAnyByte) {
    access->SetFillValue(0xFF);
    EXPECT_EQ(0xFF, access->fillValue);
}

TEST_F(HidAccess, TheConfigurationIsReadByIdsWithoutOpening) {
    hid.configuration = {9, 2, 4, 0};
    uint8_t buffer[8] = {};
    EXPECT_EQ(4, access->GetConfigDescriptorBuffer(buffer, 8));
    EXPECT_EQ("6A5C:3001 8", hid.asked());
    EXPECT_THAT(hid.calls(), IsEmpty());
}

TEST_F(HidAccess, TheConfigurationIsCutAtTheBuffersSize) {
    hid.configuration = {9, 2, 4, 0};
    uint8_t buffer[3] = {0, 0, 0xEE};
    EXPECT_EQ(2, access->GetConfigDescriptorBuffer(buffer, 2));
    EXPECT_THAT(buffer, ElementsAre(9, 2, 0xEE));
}

TEST_F(HidAccess, AConfigurationThatCannotBeReadIsTold) {
    uint8_t buffer[8];
    EXPECT_EQ(-131, access->GetConfigDescriptorBuffer(buffer, 8));
}

TEST_F(HidAccess, AnObjectThatWasNeverOpenedIsFreed) {
    expectIsFreed();
}

TEST_F(HidAccess, AClosedObjectIsFreed) {
    open();
    EXPECT_EQ(1, write({7}));
    EXPECT_EQ(0, access->Close());
    expectIsFreed();
}

TEST_F(HidAccess, AnObjectWhoseThreadCouldNotBeStartedIsFreed) {
    {
        const NoThreads none;
        EXPECT_EQ(-140, access->Open());
    }
    expectIsFreed();
}

TEST_F(HidAccess, AnOpenObjectIsNotFreed) {
    open();
    HIDAccess* object = access.release();
    deleteHIDAccess(object);
    hid.deliverNumber(7);  // its thread is still running
    access.reset(object);
    EXPECT_EQ(7, nextNumber());
}

TEST_F(HidAccess, ReaderWriterReportsAndCloseMayMeet) {
    for (int round = 0; round < 20; ++round) {
        open();
        std::atomic<bool> done{false};
        BackgroundCall reader([&] {
            uint8_t bytes[64];
            while (!done) {
                access->Read(bytes, 64, 1);
            }
            return 0;
        });
        BackgroundCall writer([&] {
            int result = 0;
            while (result != -109) {
                result = write({1, 2, 3});
            }
            return result;
        });
        for (uint32_t i = 0; i < 20; ++i) {
            hid.deliverNumber(i);
            access->SetPacketSize(i % 2 == 0 ? 64 : 512);
        }
        EXPECT_EQ(0, access->Close());
        EXPECT_EQ(-109, writer.result());
        done = true;
        EXPECT_EQ(0, reader.result());
    }
}

}  // namespace
