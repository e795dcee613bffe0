// How a device of a capture answers.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "CaptureTraffic.h"
#include "replay/Recording.h"
#include "replay/Replayer.h"

namespace {

using namespace simbus::replay;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// A replayer, and what it has said.
struct Replay {
    explicit Replay(const Traffic& traffic) : device(traffic.only()) {}

    RecordedDevice device;
    std::vector<std::string> said;
    Replayer replayer{device, [this](const std::string& text) { said.push_back(text); }};
};

auto isAnswer(std::uint64_t request, Exchange::End end, const Bytes& data = {}) {
    return AllOf(Field(&Answer::request, request), Field(&Answer::end, end), Field(&Answer::data, data));
}

constexpr auto kCompleted = Exchange::End::completed;
constexpr auto kStall = Exchange::End::stall;
constexpr auto kSilent = Exchange::End::silent;
constexpr auto kGone = Exchange::End::gone;

TEST(Replayer, AnswersAsRecordedInTheOrderThatWasSeen) {
    Traffic traffic;
    traffic.request(kAsk, {1});
    traffic.request(kAsk, {2});
    traffic.request(kAsk, {}, simbus::capture::statusStall);
    traffic.request(kAsk, {}, simbus::capture::statusCancelled);
    traffic.request(kAsk, {}, simbus::capture::statusNoDevice);
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.control(1, kAsk, {}), ElementsAre(isAnswer(1, kCompleted, {1})));
    EXPECT_THAT(replay.replayer.control(2, kAsk, {}), ElementsAre(isAnswer(2, kCompleted, {2})));
    EXPECT_THAT(replay.replayer.control(3, kAsk, {}), ElementsAre(isAnswer(3, kStall)));
    EXPECT_THAT(replay.replayer.control(4, kAsk, {}), ElementsAre(isAnswer(4, kSilent)));
    EXPECT_THAT(replay.replayer.control(5, kAsk, {}), ElementsAre(isAnswer(5, kGone)));
    EXPECT_EQ(replay.replayer.replayed(), 5U);
    EXPECT_THAT(replay.said, IsEmpty());
}

TEST(Replayer, StallsWhatIsNotInTheRecordingAndSaysSo) {
    Traffic traffic;
    traffic.request(kAsk, {1});
    traffic.write({1, 2});
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.out(1, 0x01, {9, 9}), ElementsAre(isAnswer(1, kStall)));
    EXPECT_THAT(replay.replayer.control(2, {0xC0, 2, 0, 0, 0, 0, 1, 0}, {}),
                ElementsAre(isAnswer(2, kStall)));
    EXPECT_THAT(replay.replayer.in(3, 0x81, 64), ElementsAre(isAnswer(3, kStall)));
    EXPECT_THAT(replay.replayer.in(4, 0x81, 64), ElementsAre(isAnswer(4, kStall)));
    EXPECT_THAT(replay.said,
                ElementsAre("a write to endpoint 0x01 with 09 09 is not in the recording: stalled",
                            "the request C0 02 00 00 00 00 01 00 is not in the recording any more: stalled",
                            "a read from endpoint 0x81 is not in the recording any more: stalled"));
    EXPECT_THAT(replay.replayer.out(5, 0x01, {1, 2}), ElementsAre(isAnswer(5, kCompleted)));
}

TEST(Replayer, AnswersAReadWhenEverythingHasHappenedBefore) {
    Traffic traffic;
    const auto early = traffic.begin(Kind::bulk, 0x81);
    traffic.write({1});
    traffic.request(kAsk, {7});
    traffic.end(early, {2});
    traffic.read({3});
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.in(1, 0x81, 64), IsEmpty());
    EXPECT_THAT(replay.replayer.out(2, 0x01, {1}), ElementsAre(isAnswer(2, kCompleted)));
    EXPECT_THAT(replay.replayer.control(3, kAsk, {}),
                ElementsAre(isAnswer(3, kCompleted, {7}), isAnswer(1, kCompleted, {2})));
    EXPECT_THAT(replay.replayer.in(4, 0x81, 64), ElementsAre(isAnswer(4, kCompleted, {3})));
}

constexpr std::size_t kPiece = std::size_t{16} * 1024;

/// A read in pieces, as libusb makes them, of which the first two bring data.
Traffic readInPieces(const Bytes& second, std::int32_t status) {
    Traffic traffic;
    std::vector<std::uint64_t> pieces;
    for (const std::size_t length : {kPiece, kPiece, kPiece, std::size_t{100}}) {
        pieces.push_back(traffic.begin(Kind::bulk, 0x81, {}, static_cast<std::uint32_t>(length)));
    }
    traffic.end(pieces[0], Bytes(kPiece, 1));
    traffic.end(pieces[1], second, status);
    traffic.end(pieces[2], {}, simbus::capture::statusUnlinked);
    traffic.end(pieces[3], {}, simbus::capture::statusUnlinked);
    traffic.read({5});
    return traffic;
}

TEST(Replayer, AnswersAReadWithThePiecesThatLibusbHasMadeOfIt) {
    Traffic traffic;
    traffic.end(traffic.begin(Kind::bulk, 0x81, {}, kPiece), Bytes(kPiece, 1));
    traffic.end(traffic.begin(Kind::bulk, 0x81, {}, 100), Bytes(100, 2));
    traffic.read({5});
    Replay replay(traffic);
    Bytes whole(kPiece, 1);
    whole.resize(kPiece + 100, 2);
    EXPECT_THAT(replay.replayer.in(1, 0x81, kPiece + 100), ElementsAre(isAnswer(1, kCompleted, whole)));
    EXPECT_THAT(replay.replayer.in(2, 0x81, 64), ElementsAre(isAnswer(2, kCompleted, {5})));
    EXPECT_EQ(replay.replayer.replayed(), 3U);
}

TEST(Replayer, AShortPieceIsTheLastOneOfARead) {
    Replay replay(readInPieces({2, 2}, simbus::capture::statusShort));
    Bytes whole(kPiece, 1);
    whole.resize(kPiece + 2, 2);
    EXPECT_THAT(replay.replayer.in(1, 0x81, 3 * kPiece + 100), ElementsAre(isAnswer(1, kCompleted, whole)));
    EXPECT_THAT(replay.replayer.in(2, 0x81, 64), ElementsAre(isAnswer(2, kCompleted, {5})));
}

TEST(Replayer, APieceIsOfThisReadOnlyIfTheReadHasRoomForIt) {
    Replay replay(readInPieces(Bytes(kPiece, 2), 0));
    EXPECT_THAT(replay.replayer.in(1, 0x81, kPiece), ElementsAre(isAnswer(1, kCompleted, Bytes(kPiece, 1))));
    EXPECT_THAT(replay.replayer.in(2, 0x81, 2 * kPiece - 1),
                ElementsAre(isAnswer(2, kCompleted, Bytes(kPiece, 2))));
    EXPECT_THAT(replay.replayer.in(3, 0x81, kPiece), ElementsAre(isAnswer(3, kSilent)));
    EXPECT_THAT(replay.replayer.in(4, 0x81, 100), ElementsAre(isAnswer(4, kSilent)));
    EXPECT_THAT(replay.replayer.in(5, 0x81, 64), ElementsAre(isAnswer(5, kCompleted, {5})));
}

TEST(Replayer, ACancelledReadLeavesAllItsPiecesToTheNext) {
    Traffic traffic;
    const auto first = traffic.begin(Kind::bulk, 0x81, {}, kPiece);
    const auto second = traffic.begin(Kind::bulk, 0x81, {}, 100);
    traffic.write({1});
    traffic.end(first, Bytes(kPiece, 1));
    traffic.end(second, {2});
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.in(1, 0x81, kPiece + 100), IsEmpty());
    replay.replayer.cancelled(1);
    EXPECT_THAT(replay.replayer.in(2, 0x81, kPiece + 100), IsEmpty());
    Bytes whole(kPiece, 1);
    whole.push_back(2);
    EXPECT_THAT(replay.replayer.out(3, 0x01, {1}),
                ElementsAre(isAnswer(3, kCompleted), isAnswer(2, kCompleted, whole)));
}

TEST(Replayer, TakesAWriteOfWhichLibusbHasMadePieces) {
    Traffic traffic;
    traffic.write(Bytes(kPiece, 1));
    traffic.write({2, 2});
    traffic.write({3});
    traffic.write({4});
    Replay replay(traffic);
    Bytes whole(kPiece, 1);
    whole.resize(kPiece + 2, 2);
    EXPECT_THAT(replay.replayer.out(1, 0x01, whole), ElementsAre(isAnswer(1, kCompleted)));
    EXPECT_EQ(replay.replayer.replayed(), 2U);
    EXPECT_THAT(replay.replayer.out(2, 0x01, {3, 4}), ElementsAre(isAnswer(2, kStall)));  // two transfers
    EXPECT_THAT(replay.replayer.out(3, 0x01, {3}), ElementsAre(isAnswer(3, kCompleted)));
}

TEST(Replayer, ComparesWhatTheCaptureHasOfAWrite) {
    Traffic traffic;
    traffic.begin(Kind::bulk, 0x01, {1, 2});
    traffic.capture.packets.back().length = 3;
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.out(1, 0x01, {1, 2}), ElementsAre(isAnswer(1, kStall)));
    EXPECT_THAT(replay.replayer.out(2, 0x01, {2, 2, 3}), ElementsAre(isAnswer(2, kStall)));
    EXPECT_THAT(replay.replayer.out(3, 0x01, {1, 2, 3}), ElementsAre(isAnswer(3, kSilent)));
}

TEST(Replayer, DoesNotWaitForWhatTheProgramLeavesOut) {
    Traffic traffic;
    traffic.request({0x21, 10, 0, 0, 0, 0, 0, 0},
                    {});  // as the recording system did when it found the device
    traffic.write({1});
    traffic.read({2});
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.in(1, 0x81, 64), IsEmpty());
    EXPECT_THAT(replay.replayer.out(2, 0x01, {1}),
                ElementsAre(isAnswer(2, kCompleted), isAnswer(1, kCompleted, {2})));
}

TEST(Replayer, WhatACancelledReadWouldHaveGotComesWithTheNext) {
    Traffic traffic;
    const auto early = traffic.begin(Kind::bulk, 0x81);
    traffic.write({1});
    traffic.end(early, {2});
    Replay replay(traffic);
    EXPECT_THAT(replay.replayer.in(1, 0x81, 64), IsEmpty());
    replay.replayer.cancelled(1);
    EXPECT_THAT(replay.replayer.in(2, 0x81, 64), IsEmpty());
    EXPECT_THAT(replay.replayer.out(3, 0x01, {1}),
                ElementsAre(isAnswer(3, kCompleted), isAnswer(2, kCompleted, {2})));
}

TEST(Replayer, IsNotAskedForWhatTheBusAnswersAtAHaltedEndpoint) {
    Traffic traffic;
    const auto stall = simbus::capture::statusStall;
    traffic.read({}, stall);
    traffic.read({}, stall);  // by the halt
    traffic.request({0x02, 1, 0, 0, 0x81, 0, 0, 0}, {});
    traffic.read({}, stall);
    traffic.request({0x01, 11, 0, 0, 1, 0, 0, 0}, {});  // of the other interface
    traffic.read({}, stall);
    traffic.request({0x01, 11, 0, 0, 0, 0, 0, 0}, {});
    traffic.read({1});
    EXPECT_THAT(traffic.only().exchanges,
                ElementsAre(Field(&Exchange::end, kStall), Field(&Exchange::end, kStall),
                            Field(&Exchange::end, kCompleted)));
}

TEST(Replayer, IsNotAskedForAReadThatWasCancelledBehindAnother) {
    Traffic traffic;
    const auto cancelled = simbus::capture::statusCancelled;
    const auto first = traffic.begin(Kind::bulk, 0x81);
    const auto second = traffic.begin(Kind::bulk, 0x81);
    traffic.end(second, {}, cancelled);
    traffic.end(first, {}, cancelled);
    EXPECT_THAT(traffic.only().exchanges, SizeIs(1));
}

}  // namespace
