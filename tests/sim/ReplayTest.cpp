// What is read from a capture about devices, and how a device of it answers.
#include <gmock/gmock.h>

#include <list>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "Bus.h"
#include "capture/CaptureFile.h"
#include "replay/Recording.h"
#include "replay/ReplayScenario.h"
#include "replay/Replayer.h"

namespace {

using namespace simbus::replay;
using simbus::capture::Capture;
using simbus::capture::Event;
using simbus::capture::Packet;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const SetupBytes kGetDevice = {0x80, 6, 0, 1, 0, 0, 18, 0};
const SetupBytes kGetConfiguration = {0x80, 6, 0, 2, 0, 0, 39, 0};
const SetupBytes kAsk = {0xC0, 1, 0, 0, 0, 0, 8, 0};
const Bytes kDevice = {18, 1, 0, 2, 0, 0, 0, 64, 0x09, 0x12, 0x01, 0x80, 0, 1, 0, 0, 0, 1};
/// One interface with bulk endpoints 1, out and in, and a second one with 0x82.
const Bytes kConfiguration = {9, 2, 48,   0, 2,  1,    0, 0x80, 50,  //
                              9, 4, 0,    0, 2,  0xFF, 0, 0,    0,  7, 5, 0x01, 2, 64, 0, 0,
                              7, 5, 0x81, 2, 64, 0,    0,  //
                              9, 4, 1,    0, 1,  0xFF, 0, 0,    0,  7, 5, 0x82, 2, 64, 0, 0};

/// Makes captures.
class Traffic {
 public:
    Traffic() {
        request(kGetDevice, kDevice);
        request(kGetConfiguration, kConfiguration);
    }
    explicit Traffic(std::uint8_t device) : device_(device) {}

    std::uint64_t begin(Kind kind, std::uint8_t endpoint, const Bytes& sent = {}, std::uint32_t length = 64) {
        Packet& packet = add(Event::submission, kind, endpoint, sent);
        packet.urb = ++urb_;
        packet.length = sent.empty() ? length : static_cast<std::uint32_t>(sent.size());
        return urb_;
    }
    void end(std::uint64_t urb, const Bytes& answered = {}, std::int32_t status = 0) {
        for (const Packet& start : capture.packets) {
            if (start.urb == urb && start.event == Event::submission) {
                Packet copy = start;
                Packet& packet = add(Event::completion, copy.kind, copy.endpoint, answered);
                packet.urb = urb;
                packet.status = status;
                packet.length = static_cast<std::uint32_t>(answered.size());
                return;
            }
        }
    }
    void request(const SetupBytes& setup, const Bytes& answered, std::int32_t status = 0) {
        const std::uint64_t urb = begin(Kind::control, setup[0] & 0x80U);
        capture.packets.back().setup = setup;
        end(urb, answered, status);
    }
    void write(const Bytes& sent, std::int32_t status = 0) { end(begin(Kind::bulk, 0x01, sent), {}, status); }
    void read(const Bytes& answered, std::int32_t status = 0) {
        end(begin(Kind::bulk, 0x81), answered, status);
    }
    void of(std::uint8_t device) { device_ = device; }

    RecordedDevice only() const {
        Recording recording = recordingOf(capture);
        EXPECT_THAT(recording.problems, IsEmpty());
        EXPECT_THAT(recording.devices, SizeIs(1));
        return std::move(recording.devices.at(0));
    }

    Capture capture;

 private:
    Packet& add(Event event, Kind kind, std::uint8_t endpoint, const Bytes& data) {
        const Bytes& kept = data_.emplace_back(data);
        Packet& packet = capture.packets.emplace_back();
        packet.number = capture.packets.size();
        packet.nanoseconds = packet.number;
        packet.event = event;
        packet.kind = kind;
        packet.endpoint = endpoint;
        packet.bus = 1;
        packet.device = device_;
        packet.data = kept.data();
        packet.size = kept.size();
        return packet;
    }

    std::uint8_t device_ = 5;
    std::uint64_t urb_ = 0;
    std::list<Bytes> data_;
};

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

TEST(Recording, HasTheDescriptorsAndWhatTheyDoNotAnswer) {
    Traffic traffic;
    traffic.request({0x80, 6, 0, 3, 0, 0, 4, 0}, {4, 3, 9, 4});
    traffic.request({0x80, 6, 1, 3, 9, 4, 255, 0}, {4, 3, 'a', 0});
    traffic.request({0x80, 6, 1, 3, 9, 4, 2, 0}, {4, 3});
    traffic.request({0x81, 6, 0, 0x22, 0, 0, 3, 0}, {1, 2, 3});
    traffic.request(kAsk, {7});
    const RecordedDevice device = traffic.only();
    EXPECT_EQ(device.id(), "1-5");
    EXPECT_EQ(device.descriptor, kDevice);
    EXPECT_EQ(device.configurations.at(0), kConfiguration);
    EXPECT_EQ(device.strings.at(1), (Bytes{4, 3, 'a', 0}));
    EXPECT_EQ(device.reports.at(0), (Bytes{1, 2, 3}));
    ASSERT_THAT(device.exchanges, SizeIs(1));
    EXPECT_EQ(device.exchanges[0].setup, kAsk);
    EXPECT_EQ(device.exchanges[0].answered, (Bytes{7}));
}

TEST(Recording, HasRequestsForDescriptorsThatTheDeviceNeverGave) {
    Traffic traffic;
    const auto stall = simbus::capture::statusStall;
    const SetupBytes missing = {0x80, 6, 0xEE, 3, 0, 0, 18, 0};
    traffic.request(missing, {}, stall);
    traffic.request({0x80, 6, 1, 2, 0, 0, 9, 0}, {}, stall);
    traffic.request({0x80, 6, 1, 3, 9, 4, 2, 0}, {}, stall);
    traffic.request({0x80, 6, 1, 3, 9, 4, 2, 0}, {4, 3, 'a', 0});
    const RecordedDevice device = traffic.only();
    ASSERT_THAT(device.exchanges, SizeIs(2));
    EXPECT_EQ(device.exchanges[0].setup, missing);
    EXPECT_EQ(device.exchanges[0].end, kStall);
}

TEST(Recording, LeavesOutWhatCannotBeReplayedAndSaysSo) {
    Traffic traffic;
    traffic.of(6);
    traffic.request(kAsk, {7});
    traffic.of(7);
    traffic.request(kGetDevice, kDevice);
    const Recording recording = recordingOf(traffic.capture);
    EXPECT_THAT(recording.devices, ElementsAre(Field(&RecordedDevice::address, 5)));
    EXPECT_THAT(recording.problems,
                ElementsAre("device 1-6 is left out: its device descriptor is not in the capture",
                            "device 1-7 is left out: its configuration descriptor is not in the capture"));
}

TEST(Recording, SaysNothingOfHubsAndOfAddressesThatAreNoDevices) {
    Traffic traffic;
    for (const auto address : {std::uint8_t{0}, std::uint8_t{1}}) {
        traffic.of(address);
        traffic.end(traffic.begin(Kind::interrupt, 0x81));
        traffic.begin(Kind::control, 0x80);  // without its request
    }
    traffic.of(0);
    traffic.request(kGetDevice, kDevice);
    traffic.of(8);
    Bytes hub = kDevice;
    hub[4] = 9;
    traffic.request(kGetDevice, hub);
    EXPECT_EQ(traffic.only().address, 5);
}

TEST(Recording, SaysWhatIsMissingWithTheNumberOfThePacket) {
    Traffic traffic;
    Packet end = traffic.capture.packets.back();
    end.urb = 99;
    end.number = 5;
    traffic.capture.packets.push_back(end);
    traffic.begin(Kind::control, 0x80);
    traffic.begin(Kind::isochronous, 0x82);
    traffic.begin(Kind::isochronous, 0x82);
    traffic.begin(Kind::bulk, 0x01, {1, 2, 3});
    traffic.capture.packets.back().cut = true;
    traffic.capture.packets.back().length = 9;
    EXPECT_THAT(recordingOf(traffic.capture).problems,
                ElementsAre("packet 5: the beginning of its transfer is not in the capture; it is left out",
                            "packet 6: a control transfer without its request is left out",
                            "packet 7: isochronous transfers are not replayed",
                            "packet 9: the capture has only 3 of its 9 bytes"));
}

TEST(Recording, PutsThePiecesOfLongTransfersTogether) {
    constexpr std::uint32_t kPiece = simbus::capture::kMostData;
    Traffic traffic;
    const auto first = traffic.begin(Kind::bulk, 0x81, {}, kPiece + 5);
    traffic.end(first, Bytes(kPiece, 1));
    traffic.end(traffic.begin(Kind::bulk, 0x81, {}, 5), {2, 2});
    traffic.begin(Kind::bulk, 0x01, Bytes(kPiece, 3));
    traffic.capture.packets.back().cut = true;
    traffic.capture.packets.back().length = kPiece + 2;
    traffic.begin(Kind::bulk, 0x01, {4, 4});
    const RecordedDevice device = traffic.only();
    ASSERT_THAT(device.exchanges, SizeIs(2));
    EXPECT_THAT(device.exchanges[0].answered, SizeIs(kPiece + 2));
    EXPECT_THAT(device.exchanges[1].sent, SizeIs(kPiece + 2));
}

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

TEST(ReplayScenario, IsLoadedWithTheRecordedDescriptors) {
    Traffic traffic;
    traffic.request(kAsk, {1});
    traffic.request({0x80, 6, 0, 3, 0, 0, 4, 0}, {4, 3, 9, 4});
    const nlohmann::json scenario = scenarioOf(recordingOf(traffic.capture).devices);
    const auto& device = scenario.at("devices").at(0);
    EXPECT_EQ(device.at("speed"), "full");
    EXPECT_EQ(device.at("control").size(), 1U);
    EXPECT_EQ(device.at("languages"), nlohmann::json::array({0x0409}));
    simbus::Bus& bus = simbus::Bus::instance();
    bus.loadScenario(scenario.dump());
    ASSERT_THAT(bus.devices(), SizeIs(1));
    EXPECT_EQ(bus.devices()[0]->deviceDescriptor, kDevice);
    EXPECT_THAT(bus.devices()[0]->configurationDescriptors, ElementsAre(kConfiguration));
    EXPECT_TRUE(bus.activeEndpoint(bus.devices()[0]->connection, 0x82));
    bus.loadScenario(R"({"devices": []})");
}

}  // namespace
