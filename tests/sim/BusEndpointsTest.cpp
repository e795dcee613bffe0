// The behaviour of endpoints, seen from the host side of the bus.
#include "SimTest.h"

namespace simtest {
namespace {

using simbus::Status;
using simbus::Submitted;
using testing::ElementsAre;

// A transfer with its buffer; records how it ended.
struct Recorded {
    Recorded(std::uint8_t endpoint, Bytes data) : buffer(std::move(data)) {
        transfer.endpoint = endpoint;
        transfer.data = buffer.data();
        transfer.length = buffer.size();
        transfer.done = [this] { ++completions; };
    }
    bool completed() const { return completions == 1 && transfer.status == Status::completed; }
    Bytes moved() const {
        return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(transfer.actual)};
    }

    Bytes buffer;
    simbus::Transfer transfer;
    std::atomic<int> completions{0};
};

class BusEndpoints : public SimTest {
 protected:
    void SetUp() override {
        SimTest::SetUp();
        echo = connectionOf("echo");
    }

    Submitted submit(Recorded& recorded) { return bus.submit(echo, recorded.transfer); }

    Bytes read(std::size_t length) {
        Recorded in(0x81, Bytes(length));
        EXPECT_EQ(submit(in), Submitted::accepted);
        EXPECT_TRUE(in.completed());
        return in.moved();
    }

    void write(Bytes data) {
        Recorded out(0x01, std::move(data));
        EXPECT_EQ(submit(out), Submitted::accepted);
        EXPECT_TRUE(out.completed());
    }

    void set(const char* address, const Json& settings) {
        const Json answer =
            ask({{"op", "endpoint"}, {"device", "echo"}, {"address", address}, {"set", settings}});
        EXPECT_EQ(answer["ok"], true) << answer;
    }

    simbus::ConnectionId echo = 0;
};

TEST_F(BusEndpoints, EchoGivesBackWhatWasWritten) {
    write(counting(10));
    EXPECT_EQ(read(64), counting(10));
}

TEST_F(BusEndpoints, AReadWaitsUntilSomethingIsWritten) {
    Recorded in(0x81, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.completions, 0);
    EXPECT_EQ(bus.pending("echo", 0x81), 1U);
    write(counting(3));
    EXPECT_TRUE(in.completed());
    EXPECT_EQ(in.moved(), counting(3));
    EXPECT_EQ(bus.pending("echo", 0x81), 0U);
}

TEST_F(BusEndpoints, AWriteReadsBackAsItsPackets) {
    write(counting(150));
    EXPECT_EQ(read(64), counting(64));
    EXPECT_EQ(read(64), counting(64, 64));
    EXPECT_EQ(read(64), counting(22, 128));
}

TEST_F(BusEndpoints, AReadEndsOnAShortPacket) {
    write(counting(70));
    write(counting(5));
    EXPECT_EQ(read(512), counting(70));
    EXPECT_EQ(read(512), counting(5));
}

TEST_F(BusEndpoints, AReadEndsWhenItIsFull) {
    write(counting(192));
    EXPECT_EQ(read(128), counting(128));
    EXPECT_EQ(read(128), counting(64, 128));
}

TEST_F(BusEndpoints, AReadOfWholePacketsEndsWhenThereAreNoMore) {
    write(counting(128));
    EXPECT_EQ(read(512), counting(128));
}

TEST_F(BusEndpoints, WholePacketsOfTwoWritesJoin) {
    write(counting(64));
    write(counting(64, 64));
    EXPECT_EQ(read(512), counting(128));
}

TEST_F(BusEndpoints, AZeroLengthWriteIsAZeroLengthPacket) {
    write(counting(64));
    write({});
    write(counting(1));
    EXPECT_EQ(read(512), counting(64));
    EXPECT_EQ(read(512), counting(1));
}

TEST_F(BusEndpoints, APacketThatDoesNotFitIsAnOverflow) {
    write(counting(64));
    Recorded in(0x81, Bytes(10));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.transfer.status, Status::overflow);
    EXPECT_EQ(in.moved(), counting(10));
}

TEST_F(BusEndpoints, FeedIsReadLikeAWrite) {
    bus.feed("echo", 0x81, counting(100));
    EXPECT_EQ(read(512), counting(100));
}

TEST_F(BusEndpoints, OnlyInEndpointsAreFed) {
    EXPECT_THROW(bus.feed("echo", 0x01, counting(1)), std::runtime_error);
    EXPECT_THROW(bus.feed("echo", 0x8F, counting(1)), std::runtime_error);
    EXPECT_THROW(bus.feed("nobody", 0x81, counting(1)), std::runtime_error);
}

TEST_F(BusEndpoints, ReceivedHoldsEveryWriteInOrder) {
    write(counting(3));
    write({});
    write(counting(100, 7));
    EXPECT_THAT(bus.received("echo", 0x01), ElementsAre(counting(3), Bytes(), counting(100, 7)));
    bus.clearReceived("echo", 0x01);
    EXPECT_THAT(bus.received("echo", 0x01), ElementsAre());
}

TEST_F(BusEndpoints, ReceivedForgetsTheOldestWhenThereIsTooMuch) {
    set("0x01", {{"behaviour", "sink"}});
    for (int i = 0; i < 20; ++i) {
        write(Bytes(1U << 20U, static_cast<std::uint8_t>(i)));
    }
    const auto received = bus.received("echo", 0x01);
    EXPECT_EQ(received.size(), 16U);
    EXPECT_EQ(received.front()[0], 4);
    EXPECT_EQ(received.back()[0], 19);
}

TEST_F(BusEndpoints, RecordingCanBeSwitchedOff) {
    set("0x01", {{"record", false}});
    write(counting(3));
    EXPECT_THAT(bus.received("echo", 0x01), ElementsAre());
    EXPECT_EQ(read(64), counting(3));
}

TEST_F(BusEndpoints, EchoCanGoToAnotherEndpoint) {
    set("0x01", {{"to", "0x82"}});
    write(counting(4));
    Recorded in(0x82, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.moved(), counting(4));
}

TEST_F(BusEndpoints, ASinkTakesEverythingAndGivesNothingBack) {
    set("0x01", {{"behaviour", "sink"}});
    write(counting(100));
    Recorded in(0x81, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.completions, 0);
    EXPECT_TRUE(bus.cancel(in.transfer));
}

TEST_F(BusEndpoints, ASourceCountsOnAndOn) {
    set("0x81", {{"behaviour", "source"}});
    EXPECT_EQ(read(200), counting(200));
    EXPECT_EQ(read(100), counting(100, 200));
}

TEST_F(BusEndpoints, SilentNeverCompletesUntilTheBehaviourChanges) {
    set("0x01", {{"behaviour", "silent"}});
    Recorded out(0x01, counting(5));
    ASSERT_EQ(submit(out), Submitted::accepted);
    EXPECT_EQ(out.completions, 0);
    EXPECT_EQ(bus.pending("echo", 0x01), 1U);
    set("0x01", {{"behaviour", "echo"}});
    EXPECT_TRUE(out.completed());
    EXPECT_EQ(read(64), counting(5));
}

TEST_F(BusEndpoints, SilentWithALimitMovesThatMuchFirst) {
    set("0x81", {{"behaviour", "silent"}, {"limit", 7}});
    set("0x01", {{"behaviour", "silent"}, {"limit", 3}});
    Recorded in(0x81, Bytes(64));
    Recorded out(0x01, counting(5));
    ASSERT_EQ(submit(in), Submitted::accepted);
    ASSERT_EQ(submit(out), Submitted::accepted);
    EXPECT_TRUE(bus.cancel(in.transfer));
    EXPECT_TRUE(bus.cancel(out.transfer));
    EXPECT_EQ(in.moved(), counting(7));
    EXPECT_EQ(out.transfer.actual, 3U);
}

TEST_F(BusEndpoints, StallEndsEveryTransfer) {
    set("0x81", {{"behaviour", "stall"}});
    Recorded in(0x81, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.transfer.status, Status::stall);
    EXPECT_EQ(in.transfer.actual, 0U);
}

TEST_F(BusEndpoints, ShortByAndLimitShortenTransfers) {
    set("0x01", {{"shortBy", 2}});
    Recorded out(0x01, counting(10));
    ASSERT_EQ(submit(out), Submitted::accepted);
    EXPECT_EQ(out.transfer.actual, 8U);
    EXPECT_EQ(read(64), counting(8));

    set("0x01", {{"shortBy", nullptr}});
    set("0x81", {{"limit", 5}});
    write(counting(10));
    EXPECT_EQ(read(64), counting(5));
    EXPECT_EQ(read(64), counting(5, 5)) << "the rest stays for the next transfer";
}

TEST_F(BusEndpoints, ADelayIsKept) {
    set("0x01", {{"delayMs", 50}});
    Recorded out(0x01, counting(5));
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(submit(out), Submitted::accepted);
    EXPECT_TRUE(eventually([&] { return out.completions == 1; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    EXPECT_TRUE(out.completed());
}

TEST_F(BusEndpoints, ADelayedTransferCanBeCancelledOrUnplugged) {
    set("0x01", {{"delayMs", 600000}});
    Recorded one(0x01, counting(5));
    Recorded other(0x01, counting(5));
    ASSERT_EQ(submit(one), Submitted::accepted);
    ASSERT_EQ(submit(other), Submitted::accepted);
    EXPECT_TRUE(bus.cancel(one.transfer));
    EXPECT_EQ(one.transfer.status, Status::cancelled);
    bus.unplug("echo");
    EXPECT_EQ(other.transfer.status, Status::noDevice);
}

TEST_F(BusEndpoints, CancelTellsWhetherThereWasSomethingToCancel) {
    Recorded in(0x81, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_TRUE(bus.cancel(in.transfer));
    EXPECT_EQ(in.completions, 1);
    EXPECT_EQ(in.transfer.status, Status::cancelled);
    EXPECT_FALSE(bus.cancel(in.transfer));
    EXPECT_EQ(in.completions, 1);
}

TEST_F(BusEndpoints, ATransferMayBeSubmittedAgainFromItsCompletion) {
    Recorded in(0x81, Bytes(64));
    Bytes all;
    in.transfer.done = [&] {
        const Bytes moved = in.moved();
        all.insert(all.end(), moved.begin(), moved.end());
        if (++in.completions < 3) {
            EXPECT_EQ(submit(in), Submitted::accepted);
        }
    };
    ASSERT_EQ(submit(in), Submitted::accepted);
    for (unsigned i = 0; i < 3; ++i) {
        write(counting(2, i * 2));
    }
    EXPECT_EQ(all, counting(6));
}

TEST_F(BusEndpoints, AnEndpointThatIsNotThereIsRefused) {
    Recorded in(0x85, Bytes(64));
    EXPECT_EQ(submit(in), Submitted::noEndpoint);
    EXPECT_EQ(bus.submit(echo + 1000, in.transfer), Submitted::noDevice);
    EXPECT_EQ(in.completions, 0);
}

TEST_F(BusEndpoints, AHaltLastsUntilItIsCleared) {
    Recorded halt(0x00, {});
    halt.transfer.setup = {0x02, 3, 0, 0x81, 0};
    ASSERT_EQ(submit(halt), Submitted::accepted);
    Recorded in(0x81, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(in.transfer.status, Status::stall);
    EXPECT_EQ(bus.clearHalt(echo, 0x81), Status::completed);
    write(counting(1));
    EXPECT_EQ(read(64), counting(1));
}

TEST_F(BusEndpoints, ResetCancelsAndEmpties) {
    write(counting(4));
    Recorded in(0x82, Bytes(64));
    ASSERT_EQ(submit(in), Submitted::accepted);
    EXPECT_EQ(bus.resetDevice(echo), Status::completed);
    EXPECT_EQ(in.transfer.status, Status::cancelled);
    Recorded empty(0x81, Bytes(64));
    ASSERT_EQ(submit(empty), Submitted::accepted);
    EXPECT_EQ(empty.completions, 0);
    EXPECT_TRUE(bus.cancel(empty.transfer));
}

TEST_F(BusEndpoints, ManyThreadsLoseNothing) {
    constexpr int rounds = 500;
    const auto roundTrips = [&](std::uint8_t endpoint) {
        for (int i = 0; i < rounds; ++i) {
            Recorded in(endpoint | 0x80U, Bytes(64));
            Recorded out(endpoint, counting(8, static_cast<unsigned>(i)));
            ASSERT_EQ(submit(in), Submitted::accepted);
            ASSERT_EQ(submit(out), Submitted::accepted);
            ASSERT_TRUE(eventually([&] { return in.completions == 1 && out.completions == 1; }));
            ASSERT_EQ(in.moved(), counting(8, static_cast<unsigned>(i)));
        }
    };
    std::thread other([&] { roundTrips(0x02); });
    roundTrips(0x01);
    other.join();
}

}  // namespace
}  // namespace simtest
