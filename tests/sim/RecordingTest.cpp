// What is read from a capture about devices, and the scenario that is made of it.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "Bus.h"
#include "CaptureTraffic.h"
#include "replay/Recording.h"
#include "replay/ReplayScenario.h"

namespace {

using namespace simbus::replay;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::SizeIs;
using ::testing::StartsWith;

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
    EXPECT_EQ(device.exchanges[0].end, Exchange::End::stall);
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
    traffic.cutLast(9);
    traffic.begin(Kind::bulk, 0x01, {1, 2, 3});
    traffic.cutLast(10);
    EXPECT_THAT(recordingOf(traffic.capture).problems,
                ElementsAre("packet 5: the beginning of its transfer is not in the capture; it is left out",
                            "packet 6: a control transfer without its request is left out",
                            "packet 7: isochronous transfers are not replayed",
                            StartsWith("packet 9: the capture has only 3 of its 9 bytes; ")));
}

TEST(Recording, AnswersOfWhichTheCaptureHasLessEndWithZeroes) {
    Traffic traffic;
    traffic.request(kAsk, {1, 2});
    traffic.cutLast(5);
    traffic.read({});
    traffic.cutLast(3);
    const Recording recording = recordingOf(traffic.capture);
    ASSERT_THAT(recording.devices, SizeIs(1));
    ASSERT_THAT(recording.devices[0].exchanges, SizeIs(2));
    const Exchange& request = recording.devices[0].exchanges[0];
    EXPECT_THAT(answerOf(request, askedBy(request.setup)), ElementsAre(1, 2, 0, 0, 0));
    EXPECT_THAT(answerOf(recording.devices[0].exchanges[1], 64), ElementsAre(0, 0, 0));
}

TEST(Recording, AnAnswerHasNoMoreZeroesThanWereAskedFor) {
    Traffic traffic;
    traffic.read({7});
    traffic.cutLast(0xFFFFFFFF);
    const Recording recording = recordingOf(traffic.capture);
    ASSERT_THAT(recording.devices, SizeIs(1));
    ASSERT_THAT(recording.devices[0].exchanges, SizeIs(1));
    EXPECT_THAT(answerOf(recording.devices[0].exchanges[0], 3), ElementsAre(7, 0, 0));
    EXPECT_THAT(answerOf(recording.devices[0].exchanges[0], 0), ElementsAre(7));
}

TEST(Recording, PutsThePiecesOfALongTransferWithoutDataTogether) {
    constexpr std::uint32_t kPiece = simbus::capture::kMostData;
    Traffic traffic;
    for (const std::uint32_t length : {kPiece + 2, 2U}) {
        traffic.begin(Kind::bulk, 0x01);
        traffic.cutLast(length);
    }
    const Recording recording = recordingOf(traffic.capture);
    ASSERT_THAT(recording.devices, SizeIs(1));
    ASSERT_THAT(recording.devices[0].exchanges, SizeIs(1));
    EXPECT_EQ(recording.devices[0].exchanges[0].length, kPiece + 2);
}

TEST(Recording, PutsThePiecesOfLongTransfersTogether) {
    constexpr std::uint32_t kPiece = simbus::capture::kMostData;
    Traffic traffic;
    const auto first = traffic.begin(Kind::bulk, 0x81, {}, kPiece + 5);
    traffic.end(first, Bytes(kPiece, 1));
    traffic.end(traffic.begin(Kind::bulk, 0x81, {}, 5), {2, 2});
    traffic.begin(Kind::bulk, 0x01, Bytes(kPiece, 3));
    traffic.cutLast(kPiece + 2);
    traffic.begin(Kind::bulk, 0x01, {4, 4});
    const RecordedDevice device = traffic.only();
    ASSERT_THAT(device.exchanges, SizeIs(2));
    EXPECT_THAT(device.exchanges[0].answered, SizeIs(kPiece + 2));
    EXPECT_THAT(device.exchanges[1].sent, SizeIs(kPiece + 2));
}

TEST(ReplayScenario, IsLoadedWithTheRecordedDescriptors) {
    Traffic traffic;
    traffic.request(kAsk, {1});
    traffic.request({0x80, 6, 0, 3, 0, 0, 4, 0}, {4, 3, 9, 4});
    const nlohmann::json scenario = scenarioOf(recordingOf(traffic.capture).devices, AnsweredBy::program);
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

TEST(ReplayScenario, HasRulesThatAnswerRequestsAsTheDeviceDid) {
    Traffic traffic;
    const SetupBytes keep = {0x40, 2, 0, 1, 3, 0, 2, 0};
    traffic.request(kAsk, {1});
    traffic.request(kAsk, {2, 3});
    const SetupBytes refused = {0xC0, 3, 0, 0, 0, 0, 8, 0};
    traffic.request(refused, {}, simbus::capture::statusStall);
    const SetupBytes unsteady = {0xC0, 4, 0, 0, 0, 0, 8, 0};
    traffic.request(unsteady, {1});
    traffic.request(unsteady, {}, simbus::capture::statusCancelled);
    const std::uint64_t kept = traffic.begin(Kind::control, 0, {7, 8});
    traffic.capture.packets.back().setup = keep;
    traffic.end(kept);
    const auto rules = scenarioOf({traffic.only()}, AnsweredBy::rules)["devices"][0]["control"];
    EXPECT_EQ(rules, nlohmann::json::parse(R"([
        {"requestType": 64, "request": 2, "value": 256, "index": 3, "length": 2, "data": "0708"},
        {"requestType": 192, "request": 1, "value": 0, "index": 0, "length": 8, "replies": ["01", "0203"]},
        {"requestType": 192, "request": 3, "value": 0, "index": 0, "length": 8, "stall": true},
        {"requestType": 192, "request": 4, "value": 0, "index": 0, "length": 8, "program": true}])"));
}

}  // namespace
