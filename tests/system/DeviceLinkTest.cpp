// The kernel front's side of one device, with this test in the place of the kernel.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DeviceLink.h"
#include "ProgramClient.h"
#include "UrbBytes.h"

namespace simbus::usbip {
namespace {

constexpr char scenario[] = R"({"devices": [{
    "id": "tool", "plugged": true, "vendorId": "0x6A5C", "productId": "0x1001", "serial": "LINK0001",
    "interfaces": [{"number": 0, "class": 255, "endpoints": [
        {"address": "0x01", "type": "bulk", "maxPacketSize": 64, "behaviour": "echo"},
        {"address": "0x81", "type": "bulk", "maxPacketSize": 64, "behaviour": "echo"},
        {"address": "0x82", "type": "bulk", "maxPacketSize": 64, "behaviour": "stall"},
        {"address": "0x83", "type": "bulk", "maxPacketSize": 64, "behaviour": "silent", "limit": 5},
        {"address": "0x84", "type": "bulk", "maxPacketSize": 64, "behaviour": "source"},
        {"address": "0x05", "type": "bulk", "maxPacketSize": 64, "behaviour": "program"},
        {"address": "0x85", "type": "bulk", "maxPacketSize": 64, "behaviour": "program"}]}]},
    {"id": "other", "plugged": true, "vendorId": "0x6A5C", "productId": "0x1002",
     "interfaces": [{"number": 0, "endpoints": []}]}]})";

using usbiptest::kHeaderBytes;
using usbiptest::kSubmitAnswer;
using usbiptest::kUnlinkAnswer;
using usbiptest::wordAt;

struct Answer {
    std::uint32_t kind = 0;
    std::uint32_t number = 0;
    int status = 0;
    std::size_t actual = 0;
    Bytes data;
};

class DeviceLinkTest : public testing::Test {
 protected:
    void SetUp() override {
        Bus& bus = Bus::instance();
        bus.loadScenario(scenario);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        kernel_ = ends[1];
        const timeval deadline{20, 0};
        setsockopt(kernel_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
        link_ = std::make_shared<DeviceLink>(bus.devices().at(0)->connection, ends[0]);
        server_ = std::thread([link = link_] { link->serve(); });
    }

    void TearDown() override {
        close(kernel_);
        server_.join();
    }

    void send(const Bytes& message) {
        ASSERT_EQ(::send(kernel_, message.data(), message.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(message.size()));
    }

    void submitIn(std::uint32_t number, std::uint32_t endpoint, std::uint32_t length,
                  const Bytes& setup = Bytes(8)) {
        reads_[number] = true;
        send(usbiptest::submitIn(number, endpoint, length, setup));
    }
    void submitOut(std::uint32_t number, std::uint32_t endpoint, const Bytes& data,
                   const Bytes& setup = Bytes(8)) {
        send(usbiptest::submitOut(number, endpoint, data, setup));
    }
    void unlink(std::uint32_t number, std::uint32_t unlinked) { send(usbiptest::unlink(number, unlinked)); }

    Bytes receive(std::size_t length) {
        Bytes bytes(length);
        const ssize_t got = length == 0 ? 0 : recv(kernel_, bytes.data(), length, MSG_WAITALL);
        EXPECT_EQ(got, static_cast<ssize_t>(length));
        return bytes;
    }

    Answer answer() {
        const Bytes header = receive(kHeaderBytes);
        const auto word = [&](std::size_t at) { return wordAt(header, at * 4); };
        Answer got{word(0), word(1), static_cast<int>(word(5)), 0, {}};
        if (got.kind == kSubmitAnswer) {
            got.actual = word(6);
            got.data = receive(reads_[got.number] ? got.actual : 0);
        }
        return got;
    }

    void expectAnswer(std::uint32_t kind, std::uint32_t number, int status) {
        const Answer got = answer();
        EXPECT_EQ(got.kind, kind);
        EXPECT_EQ(got.number, number);
        EXPECT_EQ(got.status, status);
    }

    // Requests are handled in order, so what came before a control request has been handled when it is
    // answered.
    void passOver(std::uint32_t number) {
        const Bytes getStatus{0x80, 0, 0, 0, 0, 0, 2, 0};
        submitIn(number, 0, 2, getStatus);
        expectAnswer(kSubmitAnswer, number, 0);
    }

    // The link has ended and nothing of it waits any more.
    void awaitEnd() {
        char byte = 0;
        EXPECT_EQ(recv(kernel_, &byte, 1, 0), 0) << "the link ends";
        server_.join();
        server_ = std::thread([] {});
    }

    int kernel_ = -1;
    std::shared_ptr<DeviceLink> link_;
    std::thread server_;
    std::map<std::uint32_t, bool> reads_;
};

TEST_F(DeviceLinkTest, DataGoesOutAndComesBack) {
    const Bytes data{1, 2, 3, 4};
    submitOut(1, 1, data);
    const Answer written = answer();
    EXPECT_EQ(written.number, 1U);
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(written.actual, data.size());
    submitIn(2, 1, 64);
    const Answer got = answer();
    EXPECT_EQ(got.number, 2U);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.data, data);
}

TEST_F(DeviceLinkTest, ControlRequestCarriesItsSetupPacket) {
    submitIn(1, 0, 18, {0x80, 6, 0, 1, 0, 0, 18, 0});
    EXPECT_EQ(answer().data, Bus::instance().devices().at(0)->deviceDescriptor);
}

TEST_F(DeviceLinkTest, StallAndUnknownEndpointAreBrokenPipes) {
    submitIn(1, 2, 64);
    expectAnswer(kSubmitAnswer, 1, -EPIPE);
    submitIn(2, 9, 64);
    expectAnswer(kSubmitAnswer, 2, -EPIPE);
}

TEST_F(DeviceLinkTest, UnlinkOfAWaitingTransferIsItsOnlyAnswer) {
    submitIn(1, 1, 64);
    unlink(2, 1);
    expectAnswer(kUnlinkAnswer, 2, -ECONNRESET);
    passOver(3);
}

TEST_F(DeviceLinkTest, UnlinkAfterCompletionComesAfterTheAnswer) {
    submitOut(1, 1, {7});
    unlink(2, 1);
    expectAnswer(kSubmitAnswer, 1, 0);
    expectAnswer(kUnlinkAnswer, 2, 0);
}

TEST_F(DeviceLinkTest, UnlinkDeliversWhatHadBeenMoved) {
    submitIn(1, 3, 64);
    unlink(2, 1);
    const Answer partial = answer();
    EXPECT_EQ(partial.number, 1U);
    EXPECT_EQ(partial.status, -ECONNRESET);
    EXPECT_EQ(partial.data, (Bytes{0, 1, 2, 3, 4}));
    expectAnswer(kUnlinkAnswer, 2, 0);
}

TEST_F(DeviceLinkTest, UnlinkRacingWithDataLosesNeitherDataNorAnswers) {
    constexpr std::uint32_t rounds = 500;
    std::thread feeder([] {
        for (std::uint32_t i = 0; i < rounds; ++i) {
            Bus::instance().feed("tool", 0x81, {static_cast<std::uint8_t>(i)});
        }
    });
    Bytes got;
    std::uint32_t number = 0;
    while (got.size() < rounds && !HasFailure()) {
        const std::uint32_t submitted = ++number;
        submitIn(submitted, 1, 64);
        const std::uint32_t taken = ++number;
        unlink(taken, submitted);
        Answer first = answer();
        if (first.kind == kSubmitAnswer) {
            EXPECT_EQ(first.number, submitted);
            EXPECT_EQ(first.status, 0);
            got.insert(got.end(), first.data.begin(), first.data.end());
            expectAnswer(kUnlinkAnswer, taken, 0);
        } else {
            EXPECT_EQ(first.number, taken);
            EXPECT_EQ(first.status, -ECONNRESET);
        }
    }
    feeder.join();
    for (std::uint32_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i], static_cast<std::uint8_t>(i));
    }
}

TEST_F(DeviceLinkTest, IsochronousTransferIsRefusedWhole) {
    const Bytes dataAndDescriptors(100 + 2 * 16);
    send(usbiptest::message({1, 1, 0, 0, 1, 0, 100, 0, 2}, Bytes(8), dataAndDescriptors));
    expectAnswer(kSubmitAnswer, 1, -EINVAL);
    passOver(2);
}

TEST_F(DeviceLinkTest, EndOfTheLinkTakesBackWhatWaits) {
    submitIn(1, 1, 64);
    passOver(2);
    EXPECT_EQ(Bus::instance().pending("tool", 0x81), 1U);
    link_->hangUp();
    awaitEnd();
    EXPECT_EQ(Bus::instance().pending("tool", 0x81), 0U);
}

TEST_F(DeviceLinkTest, UnpluggedDeviceAnswersNothingMore) {
    submitIn(1, 1, 64);
    passOver(2);
    Bus::instance().unplug("tool");
    link_->hangUp();
    char byte = 0;
    EXPECT_EQ(recv(kernel_, &byte, 1, 0), 0);
}

TEST_F(DeviceLinkTest, AHaltOfTheControlPipeItselfIsAnswered) {
    const Bytes setHalt{0x02, 3, 0, 0, 0x80, 0, 0, 0};
    const Bytes clearHalt{0x02, 1, 0, 0, 0x80, 0, 0, 0};
    submitOut(1, 0, {}, setHalt);
    expectAnswer(kSubmitAnswer, 1, 0);
    submitOut(2, 0, {}, clearHalt);
    expectAnswer(kSubmitAnswer, 2, 0);
    passOver(3);
}

TEST_F(DeviceLinkTest, ANumberThatWaitsCannotBeGivenToAnother) {
    submitIn(1, 1, 64);
    submitIn(1, 1, 64);
    awaitEnd();
    EXPECT_EQ(Bus::instance().pending("tool", 0x81), 0U);
    Bus::instance().feed("tool", 0x81, {1, 2, 3});
}

TEST_F(DeviceLinkTest, ANumberThatWasAnsweredCanBeGivenAgain) {
    submitOut(1, 1, {7});
    expectAnswer(kSubmitAnswer, 1, 0);
    submitOut(1, 1, {8});
    expectAnswer(kSubmitAnswer, 1, 0);
}

TEST_F(DeviceLinkTest, WhatWaitsHasABound) {
    constexpr std::uint32_t most = 64U << 20U;
    submitIn(1, 1, most);
    submitIn(2, 1, most);
    awaitEnd();
}

TEST_F(DeviceLinkTest, AProgramAnswersForTheDevice) {
    usbiptest::ProgramClient program("tool");
    submitIn(1, 0, 4, {0xC0, 7, 0, 0, 0, 0, 4, 0});
    program.reply(program.event("control"), R"("data":"0102")");
    EXPECT_EQ(answer().data, (Bytes{1, 2}));
    submitOut(2, 5, {3, 4});
    const std::string out = program.event("out");
    EXPECT_NE(out.find(R"("data":"0304")"), std::string::npos) << out;
    program.reply(out, R"("stall":false)");
    expectAnswer(kSubmitAnswer, 2, 0);
    submitIn(3, 5, 64);
    program.reply(program.event("in"), R"("data":"05")");
    EXPECT_EQ(answer().data, Bytes{5});
    submitOut(4, 5, {6});
    program.reply(program.event("out"), R"("stall":true)");
    expectAnswer(kSubmitAnswer, 4, -EPIPE);
}

TEST_F(DeviceLinkTest, AProgramIsToldOfAnUnlinkAndItsEndStallsTheDevice) {
    auto program = std::make_unique<usbiptest::ProgramClient>("tool");
    submitIn(1, 5, 64);
    program->event("in");
    unlink(2, 1);
    expectAnswer(kUnlinkAnswer, 2, -ECONNRESET);
    program->event("cancelled");
    submitIn(3, 5, 64);
    program->event("in");
    program.reset();
    expectAnswer(kSubmitAnswer, 3, -EPIPE);
    passOver(4);
}

// More than any socket holds.
constexpr std::uint32_t kLongAnswer = 8U << 20U;

TEST_F(DeviceLinkTest, AClientThatDoesNotReadHoldsUpNobodyElse) {
    submitIn(1, 4, kLongAnswer);
    receive(kHeaderBytes);  // the answer is being sent
    // Returns when the fronts know of it, which the same thread tells them that completes transfers.
    auto unplugged = std::async(std::launch::async, [] { Bus::instance().unplug("other"); });
    const bool inTime = unplugged.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(inTime);
    if (!inTime) {
        link_->hangUp();
    }
}

TEST_F(DeviceLinkTest, AnswersThatWaitToBeReadArriveWhole) {
    submitIn(1, 4, kLongAnswer);
    submitIn(2, 4, kLongAnswer);
    Answer first = answer();
    EXPECT_EQ(first.number, 1U);
    EXPECT_EQ(first.data.size(), kLongAnswer);
    const Answer second = answer();
    EXPECT_EQ(second.number, 2U);
    EXPECT_EQ(second.data.size(), kLongAnswer);
    EXPECT_EQ(second.data[1], static_cast<std::uint8_t>(second.data[0] + 1));
    passOver(3);
}

TEST_F(DeviceLinkTest, AClientThatAsksForMoreAndDoesNotReadIsDropped) {
    constexpr std::uint32_t count = 20;  // their answers are more than the bound on what waits
    for (std::uint32_t number = 1; number <= count; ++number) {
        submitIn(number, 4, kLongAnswer);
    }
    pollfd ended{kernel_, 0, 0};
    const int dropped = poll(&ended, 1, 20000);
    EXPECT_EQ(dropped, 1) << "the link ends";
    if (dropped != 1) {
        link_->hangUp();
    }
}

TEST_F(DeviceLinkTest, NonsenseEndsTheLink) {
    send(usbiptest::message({77, 1}));
    char byte = 0;
    EXPECT_EQ(recv(kernel_, &byte, 1, 0), 0);
}

}  // namespace
}  // namespace simbus::usbip
