#include <gmock/gmock.h>

#include <atomic>
#include <numeric>
#include <optional>

#include "BackgroundCall.h"
#include "FakeClock.h"
#include "FakeMemory.h"
#include "HidTest.h"
#include "UsbTest.h"
#include "ground/SharedField.h"

namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Bytes = std::vector<uint8_t>;

/// Bytes that count up from `first`.
Bytes counting(size_t count, uint8_t first = 0) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes part(const Bytes& bytes, size_t begin, size_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(begin),
            bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

class HidRing : public HidTest, public ::testing::WithParamInterface<int32_t> {
 protected:
    int32_t size() const { return GetParam(); }
    uint32_t capacity() const { return static_cast<uint32_t>(ringCapacity(size())); }
    void deliverNumbers(uint32_t first, uint32_t end) {
        for (uint32_t number = first; number < end; ++number) {
            hid.deliverNumber(number, static_cast<size_t>(size()));
        }
    }
    /// Takes these numbers out of the ring and expects it to be empty then.
    void expectNumbers(uint32_t first, uint32_t end) {
        for (uint32_t number = first; number < end; ++number) {
            ASSERT_EQ(number, nextNumber());
        }
        EXPECT_EQ(-1, nextNumber());
    }
};

TEST_P(HidRing, HoldsOneReportLessThanItHasSlots) {
    open(size());
    deliverNumbers(0, capacity());
    expectNumbers(0, capacity());
}

TEST_P(HidRing, OneReportTooManyDropsTheOldest) {
    open(size());
    deliverNumbers(0, capacity() + 1);
    expectNumbers(1, capacity() + 1);
}

TEST_P(HidRing, KeepsTheNewestHoweverManyAreDropped) {
    open(size());
    deliverNumbers(0, 2 * capacity() + 10);
    expectNumbers(capacity() + 10, 2 * capacity() + 10);
}

TEST_P(HidRing, GivesEveryByteOfEveryReportAroundTheEnd) {
    open(size());
    for (uint32_t number = 0; number < capacity() + 3; ++number) {
        const Bytes report = counting(static_cast<size_t>(size()), static_cast<uint8_t>(number));
        hid.deliver(report);
        ASSERT_EQ(size(), read(size()));
        ASSERT_EQ(report, received) << number;
    }
}

TEST_P(HidRing, NothingIsWrittenBehindTheReportBuffer) {
    access->spare = 0x5AFE;
    open(size());
    deliverNumbers(0, capacity() + 2);
    EXPECT_EQ(0x5AFE, access->spare);
    EXPECT_LT(access->writeIndex, kRingBytes);
    EXPECT_EQ(size(), access->packetSize);
}

INSTANTIATE_TEST_SUITE_P(All, HidRing, ::testing::Values(64, 100, 512, 1000, 1024));

class HidReports : public HidTest {
 protected:
    /// A write of zeroes whose first report is held until the gate is opened.
    std::unique_ptr<BackgroundCall> heldWrite(Gate& gate, int size) {
        hid.onSend = [&gate] { gate.pass(); };
        zeroes_.resize(static_cast<size_t>(size));
        auto write = std::make_unique<BackgroundCall>(
            [this, size] { return access->Write(zeroes_.data(), size, 1'000); });
        EXPECT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
        return write;
    }

 private:
    Bytes zeroes_;
};

TEST_F(HidReports, TheRingHolds999ReportsOf64Bytes) {
    EXPECT_EQ(999, ringCapacity(64));
}

TEST_F(HidReports, AChangeOfThePacketSizeInMidStreamStaysInsideTheObject) {
    open(64);
    access->spare = 0x5AFE;
    for (int32_t size : {1024, 100, 1000, 64, 999, 1023, 512}) {
        access->SetPacketSize(size);
        for (uint32_t number = 0; number < 700; ++number) {
            hid.deliverNumber(number);
            if (number % 3 == 0) {
                nextNumber();
            }
        }
    }
    EXPECT_EQ(0x5AFE, access->spare);
    access->SetPacketSize(64);
    EXPECT_GE(access->readIndex, 0);
    EXPECT_LT(access->readIndex, kRingBytes);
    while (nextNumber() != -1) {
    }
    hid.deliverNumber(77);
    EXPECT_EQ(77, nextNumber());
}

TEST_F(HidReports, TheReportLengthIsFixedWhenTheThreadStarts) {
    open(64);
    access->SetPacketSize(512);
    hid.deliver(counting(512));
    EXPECT_EQ(64, hid.inputLength());
    access->Close();
    open(512);
    EXPECT_EQ(512, hid.inputLength());
}

TEST_F(HidReports, AShortReportCountsAsAWholePacket) {
    open(64);
    hid.deliver({1, 2, 3});
    EXPECT_EQ(64, read(64));
    EXPECT_THAT(part(received, 0, 3), ElementsAre(1, 2, 3));
}

TEST_F(HidReports, ReadWithoutTimeLooksAtNothing) {
    open();
    hid.deliverNumber(5);
    EXPECT_EQ(-150, read(64, 0));
    EXPECT_EQ(-150, read(64, -1));
    EXPECT_THAT(received, Each(0xEE));
    EXPECT_EQ(5, nextNumber());
}

TEST_F(HidReports, ReadDropsWhatIsLeftOfAReport) {
    open();
    hid.deliver(counting(64));
    hid.deliver(counting(64, 100));
    EXPECT_EQ(10, read(10));
    EXPECT_EQ(counting(10), received);
    EXPECT_EQ(10, read(10));
    EXPECT_EQ(counting(10, 100), received);
}

TEST_F(HidReports, ReadTakesAsManyReportsAsItNeeds) {
    open();
    hid.deliver(counting(64));
    hid.deliver(counting(64, 64));
    hid.deliver(counting(64, 128));
    EXPECT_EQ(130, read(130));
    EXPECT_EQ(counting(130), received);
    EXPECT_EQ(-1, nextNumber());
}

TEST_F(HidReports, ReadWaitsForReportsThatAreStillToCome) {
    open();
    hid.deliver(counting(64));
    Bytes bytes(128);
    BackgroundCall reading([&] { return access->Read(bytes.data(), 128, 60'000); });
    hid.deliver(counting(64, 64));
    EXPECT_EQ(128, reading.result());
    EXPECT_EQ(counting(128), bytes);
}

TEST_F(HidReports, ReadOfOneByteGivesTheFirstOfAReport) {
    open();
    hid.deliver(counting(64, 7));
    EXPECT_EQ(1, read(1));
    EXPECT_THAT(received, ElementsAre(7));
}

TEST_F(HidReports, ReadAllocatesNothing) {
    open();
    hid.deliverNumber(1, 64);
    Bytes buffer(64);
    const FailingAllocation first(FailingAllocation::kAnySize);
    EXPECT_EQ(64, access->Read(buffer.data(), 64, 10'000));
    EXPECT_EQ(-150, access->Read(buffer.data(), 64, 1));
    EXPECT_FALSE(FailingAllocation::happened());
}

TEST_F(HidReports, WriteAllocatesNothing) {
    open();
    Bytes bytes(130);
    std::optional<FailingAllocation> first;  // until the device has the report; the test allocates then
    hid.onSend = [&] {
        EXPECT_FALSE(first.has_value() && FailingAllocation::happened());
        first.reset();
    };
    first.emplace(FailingAllocation::kAnySize);
    EXPECT_EQ(130, access->Write(bytes.data(), 130, 1'000));
    EXPECT_FALSE(first.has_value());
}

TEST_F(HidReports, ReadOfNothingTakesItsTimeOut) {
    open();
    hid.deliverNumber(1);
    const LookingClock clock;
    const int64_t before = clock.milliseconds;
    EXPECT_EQ(-150, read(0, 500));
    EXPECT_EQ(before + 501, clock.milliseconds) << "one to know the end, and one for each millisecond";
}

TEST_F(HidReports, EachReportOfAWriteHasTheSizeThatTheObjectHasThen) {
    open();
    int sends = 0;
    hid.onSend = [&] { storeShared(access->packetSize, ++sends == 1 ? 128 : 64); };
    EXPECT_EQ(200, write(counting(200)));
    const auto sent = hid.sent();
    ASSERT_THAT(sent, ElementsAre(SizeIs(64), SizeIs(128), SizeIs(64)));
    EXPECT_EQ(part(counting(200), 64, 192), sent[1]);
    EXPECT_EQ(part(counting(200), 192, 200), part(sent[2], 0, 8));
    EXPECT_THAT(part(sent[2], 8, 64), Each(0x5A));
}

TEST_F(HidReports, TheMakersSecondVendorReadsWholeReportsOf512BytesAfterAnOpen) {
    access.reset(newHIDAccess(0x6A5D, kHidProduct, "HID0002", 64, 0x5A));
    ASSERT_EQ(0, access->Open());
    waitForState(kReadThreadRuns);
    hid.deliver(counting(512));
    hid.deliver(counting(512, 1));
    EXPECT_EQ(512, read(512));
    EXPECT_EQ(counting(512), part(received, 0, 512));
    EXPECT_EQ(512, read(512));
    EXPECT_EQ(counting(512, 1), part(received, 0, 512));
}

TEST_F(HidReports, ReadThatGetsTooLittleTimesOutAndKeepsWhatItCopied) {
    open();
    hid.deliver(counting(64));
    EXPECT_EQ(-150, read(65, 20));
    EXPECT_EQ(counting(64), part(received, 0, 64));
    EXPECT_EQ(0xEE, received[64]);
    EXPECT_EQ(-1, nextNumber());
}

TEST_F(HidReports, ReadOfNothingEatsEveryReportUntilTheDeadline) {
    open();
    for (uint32_t number = 0; number < 5; ++number) {
        hid.deliverNumber(number);
    }
    EXPECT_EQ(-150, read(0, 20));
    EXPECT_EQ(-1, nextNumber());
    EXPECT_EQ(-150, read(-1, 5));
}

TEST_F(HidReports, ReadsTimeIsThatOfTheWallClock) {
    open();
    const LookingClock clock;
    const int64_t before = clock.milliseconds;
    EXPECT_EQ(-150, read(1, 500));
    const int64_t looks = clock.milliseconds - before;
    EXPECT_EQ(501, looks) << "one to know the end, and one for each millisecond";
}

TEST_F(HidReports, AClockThatIsSetBackMakesAReadLonger) {
    open();
    ClockSetBack clock;
    EXPECT_EQ(-150, read(1, 500));
    EXPECT_EQ(701, clock.looks) << "one to know the end, and one for each millisecond";
}

TEST_F(HidReports, ReadGivesWhatCameEvenWhenItsTimeIsUpAtTheFirstLook) {
    open();
    hid.deliver(counting(64));
    const LookingClock clock;
    EXPECT_EQ(64, read(64, 1));
}

TEST_F(HidReports, ReadOnAClosedObjectTakesWhatIsInTheRingAndThenTimesOut) {
    open();
    hid.deliver(counting(64));
    access->Close();
    EXPECT_EQ(64, read(64));
    EXPECT_EQ(counting(64), received);
    EXPECT_EQ(-150, read(64, 10));
}

TEST_F(HidReports, GetIncomingDataTakesOneReport) {
    open();
    Bytes bytes(100, 0xEE);
    EXPECT_EQ(0, access->GetIncomingData(bytes.data(), 100));
    hid.deliver(counting(64));
    hid.deliver(counting(64, 100));
    EXPECT_EQ(64, access->GetIncomingData(bytes.data(), 100));
    EXPECT_EQ(counting(64), part(bytes, 0, 64));
    EXPECT_EQ(0xEE, bytes[64]);
    EXPECT_EQ(3, access->GetIncomingData(bytes.data(), 3));
    EXPECT_EQ(counting(3, 100), part(bytes, 0, 3));
    EXPECT_EQ(0, access->GetIncomingData(bytes.data(), 100));
}

TEST_F(HidReports, WritePadsTheLastReport) {
    open();
    EXPECT_EQ(100, write(counting(100)));
    ASSERT_THAT(hid.sent(), SizeIs(2));
    EXPECT_EQ(counting(64), hid.sent()[0]);
    EXPECT_EQ(counting(36, 64), part(hid.sent()[1], 0, 36));
    EXPECT_EQ(Bytes(28, 0x5A), part(hid.sent()[1], 36, 64));
}

TEST_F(HidReports, WritePadsWithTheLowByteOfTheFillValue) {
    open();
    storeShared(access->fillValue, 0x1FF);
    EXPECT_EQ(1, write({7}));
    EXPECT_EQ(Bytes(63, 0xFF), part(hid.sent().at(0), 1, 64));
}

TEST_F(HidReports, WriteOfWholeReportsPadsNothing) {
    open();
    EXPECT_EQ(128, write(counting(128)));
    EXPECT_THAT(hid.sent(), ElementsAre(counting(64), counting(64, 64)));
}

TEST_F(HidReports, WriteCutsByThePacketSizeThatIsSet) {
    open(1024);
    EXPECT_EQ(1025, write(Bytes(1025, 1)));
    ASSERT_THAT(hid.sent(), SizeIs(2));
    EXPECT_EQ(Bytes(1024, 1), hid.sent()[0]);
    EXPECT_THAT(hid.sent()[1], SizeIs(1024));
}

TEST_F(HidReports, WriteOfNothingSendsNothing) {
    open();
    EXPECT_EQ(0, write({}));
    EXPECT_EQ(0, access->Write(nullptr, -1, 100));
    EXPECT_THAT(hid.sent(), IsEmpty());
}

TEST_F(HidReports, WriteHandsItsTimeOutToEveryReport) {
    open();
    EXPECT_EQ(65, write(counting(65), 1234));
    EXPECT_THAT(hid.sendTimeouts(), ElementsAre(1234, 1234));
}

TEST_F(HidReports, WriteOnAClosedObjectIsRefusedBeforeItsSizeIsLookedAt) {
    EXPECT_EQ(-109, write(counting(1)));
    EXPECT_EQ(-109, write({}));
}

TEST_F(HidReports, WriteStopsAtTheReportThatCannotBeSent) {
    open();
    hid.sendsBeforeFailure = 1;
    EXPECT_EQ(-112, write(counting(192)));
    EXPECT_THAT(hid.sent(), ElementsAre(counting(64)));
}

TEST_F(HidReports, AReadThreadThatComesAfterTheCloseTouchesNothing) {
    EXPECT_EQ(nullptr, access->ReadThreadInternal(nullptr));
    EXPECT_EQ(kNoReadThread, threadState());
    EXPECT_THAT(hid.calls(), IsEmpty());
}

TEST_F(HidReports, WriteWithoutAPacketSizeSendsNothing) {
    open();
    storeShared(access->packetSize, 0);
    EXPECT_EQ(0, write(counting(10)));
    EXPECT_THAT(hid.sent(), IsEmpty());
    storeShared(access->packetSize, 64);
}

TEST_F(HidReports, WriteSendsReportsOfOneByteToo) {
    open();
    storeShared(access->packetSize, 1);
    EXPECT_EQ(2, write({7, 8}));
    EXPECT_THAT(hid.sent(), ElementsAre(Bytes{7}, Bytes{8}));
    storeShared(access->packetSize, 64);
}

TEST_F(HidReports, CloseWaitsForAWriteUnderWayAndEndsIt) {
    open();
    Gate gate;
    const auto writing = heldWrite(gate, 192);
    BackgroundCall closing([&] { return access->Close(); });
    ASSERT_TRUE(eventually([&] { return loadShared(access->ppDeviceInterface) == nullptr; }));
    EXPECT_TRUE(hid.isOpen());
    EXPECT_FALSE(closing.hasReturned());
    gate.open();
    EXPECT_EQ(-112, writing->result());
    EXPECT_EQ(0, closing.result());
    EXPECT_FALSE(hid.isOpen());
    EXPECT_THAT(hid.sent(), SizeIs(1));
}

TEST_F(HidReports, CloseLeavesADeviceOpenThatAWriteDoesNotLeave) {
    open();
    Gate gate;
    const auto writing = heldWrite(gate, 64);
    storeShared(access->threadState, kReadThreadStops);
    waitForState(kReadThreadEnded);
    g_hidThreadWaitMs = 1;
    EXPECT_EQ(0, access->Close());
    EXPECT_FALSE(writing->hasReturned());
    EXPECT_TRUE(hid.isOpen()) << "the device is not taken from the write";
    gate.open();
    EXPECT_EQ(64, writing->result());
    EXPECT_EQ(-109, access->Close());
}

}  // namespace
