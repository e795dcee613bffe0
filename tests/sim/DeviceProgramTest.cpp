// Devices that a program answers for, as a client of the control socket.
#include <cstdlib>

#include "SocketHost.h"

namespace simtest {
namespace {

using simbus::Status;

const auto scenario = R"({"devices": [
 {"id": "clever", "vendorId": 1, "productId": 2,
  "interfaces": [
   {"endpoints": [
    {"address": "0x01", "behaviour": "program"}, {"address": "0x81", "behaviour": "program"},
    {"address": "0x02"}, {"address": "0x82"}]},
   {"number": 1, "alternate": 0}, {"number": 1, "alternate": 1}],
  "control": [
    {"requestType": "0xC0", "request": 1, "reply": "AB"},
    {"requestType": "0x80", "request": 6, "value": "0x0100", "program": true}]},
 {"id": "other", "interfaces": [{"endpoints": [{"address": "0x01"}, {"address": "0x81"}]}]}
]})";

constexpr simbus::Setup kRead{0xC0, 7, 0x0102, 3, 4};
constexpr simbus::Setup kWrite{0x40, 8, 0, 0, 2};

class DeviceProgramTest : public SimTest {
 protected:
    void SetUp() override {
        SimTest::SetUp();
        bus.loadScenario(scenario);
        connection = connectionOf("clever");
        if (std::getenv("SIMBUS_BUS") == nullptr) {
            ASSERT_TRUE(bus.openControlSocket(socketPath()));
        }
    }

    // The bus that has the devices.
    static std::string path() {
        const char* shared = std::getenv("SIMBUS_BUS");
        return shared == nullptr ? socketPath() : shared;
    }
    static Json serve(Host& program, unsigned deadlineMs = 30000) {
        return program.ask({{"op", "serve"}, {"device", "clever"}, {"deadlineMs", deadlineMs}});
    }
    static Json reply(Host& program, const Json& event, const Json& rest = Json::object()) {
        Json request = {{"op", "reply"}, {"request", event["request"]}};
        request.update(rest);
        return program.ask(request);
    }
    static std::string stateOf(const std::string& id) {
        const Json answer = ask({{"op", "devices"}});
        for (const Json& device : answer["devices"]) {
            if (device["id"] == id) {
                return device.value("program", "");
            }
        }
        return "no such device";
    }
    // As the device is plugged in now.
    Status request(const simbus::Setup& setup) {
        return Exchange(connectionOf("clever"), 0, {}, setup).status();
    }

    simbus::ConnectionId connection = 0;
};

TEST_F(DeviceProgramTest, AnswersControlRequestsThatNothingElseAnswers) {
    Host program(path());
    EXPECT_EQ(serve(program)["plugged"], true);
    Exchange in(connection, 0, {}, kRead);
    const Json read = program.event("control");
    EXPECT_EQ(read["setup"], "C007020103000400");
    EXPECT_FALSE(read.contains("data"));
    EXPECT_TRUE(in.waits());
    EXPECT_EQ(reply(program, read, {{"data", "0102"}})["ok"], true);
    EXPECT_EQ(in.received(), (Bytes{1, 2}));

    Exchange out(connection, 0, {0xAA, 0xBB}, kWrite);
    const Json write = program.event("control");
    EXPECT_EQ(write["data"], "AABB");
    reply(program, write);
    EXPECT_EQ(out.status(), Status::completed);
    EXPECT_EQ(out.transfer.actual, 2U);

    Exchange refused(connection, 0, {}, kRead);
    reply(program, program.event("control"), {{"stall", true}});
    EXPECT_EQ(refused.status(), Status::stall);
    EXPECT_EQ(Exchange(connection, 0, {}, {0xC0, 1, 0, 0, 1}).received(), Bytes{0xAB}) << "of the scenario";
    EXPECT_EQ(Exchange(connection, 0, {}, {0x80, 8, 0, 0, 1}).received(), Bytes{1}) << "of every device";
}

TEST_F(DeviceProgramTest, ARuleGivesItAStandardRequest) {
    Host program(path());
    serve(program);
    Exchange descriptor(connection, 0, {}, {0x80, 6, 0x0100, 0, 18});
    reply(program, program.event("control"), {{"data", "1201"}});
    EXPECT_EQ(descriptor.received(), (Bytes{0x12, 1}));
}

TEST_F(DeviceProgramTest, TakesOutTransfersOneAfterAnother) {
    Host program(path());
    serve(program);
    Exchange first(connection, 0x01, {1, 2});
    Exchange second(connection, 0x01, {3});
    const Json one = program.event("out");
    EXPECT_EQ(one["address"], 1);
    EXPECT_EQ(one["data"], "0102");
    EXPECT_TRUE(first.waits());
    reply(program, one);
    EXPECT_EQ(first.status(), Status::completed);
    EXPECT_EQ(first.transfer.actual, 2U);
    EXPECT_TRUE(second.waits());
    const Json two = program.event("out");
    EXPECT_EQ(two["data"], "03");
    EXPECT_EQ(bus.received("clever", 0x01), (std::vector<Bytes>{{1, 2}}));
    reply(program, two, {{"stall", true}});
    EXPECT_EQ(second.status(), Status::stall);
}

TEST_F(DeviceProgramTest, ItsStallHaltsAnEndpointUntilTheHostClearsIt) {
    Host program(path());
    serve(program);
    Exchange refused(connection, 0x81, Bytes(64));
    reply(program, program.event("in"), {{"stall", true}});
    EXPECT_EQ(refused.status(), Status::stall);
    EXPECT_EQ(Exchange(connection, 0x81, Bytes(64)).status(), Status::stall);
    EXPECT_EQ(bus.clearHalt(connection, 0x81), Status::completed);
    Exchange next(connection, 0x81, Bytes(64));
    reply(program, program.event("in"), {{"data", "05"}});
    EXPECT_EQ(next.received(), Bytes{5});
}

TEST_F(DeviceProgramTest, FeedsInTransfersThatWait) {
    Host program(path());
    serve(program);
    Exchange waiting(connection, 0x81, Bytes(64));
    const Json in = program.event("in");
    EXPECT_EQ(in["address"], 0x81);
    EXPECT_EQ(in["length"], 64);
    const Json feed = {{"op", "feed"}, {"device", "clever"}, {"address", 0x81}, {"data", "0708"}};
    EXPECT_EQ(program.ask(feed)["ok"], true);
    EXPECT_EQ(waiting.received(), (Bytes{7, 8}));
    EXPECT_EQ(reply(program, in, {{"data", "09"}})["ok"], true) << "it is late, and ignored";
    program.ask(feed);
    EXPECT_EQ(Exchange(connection, 0x81, Bytes(64)).received(), (Bytes{7, 8})) << "without a question";
    Exchange another(connection, 0x81, Bytes(64));
    const Json next = program.nextEvent();
    EXPECT_EQ(next["event"], "in") << "nothing was cancelled";
    reply(program, next, {{"data", "0A"}});
    EXPECT_EQ(another.received(), Bytes{10});
}

TEST_F(DeviceProgramTest, MayLetAnInTransferWaitForLongerThanItsDeadline) {
    Host program(path());
    serve(program, 1);
    Exchange waiting(connection, 0x81, Bytes(64));
    const Json in = program.event("in");
    std::this_thread::sleep_for(aWhile);
    EXPECT_EQ(stateOf("clever"), "answers");
    reply(program, in);
    EXPECT_EQ(waiting.received(), Bytes{}) << "an empty packet";
}

TEST_F(DeviceProgramTest, IsToldThatASilentRequestIsCancelledAndMayAnswerLate) {
    Host program(path());
    serve(program);
    Exchange silent(connection, 0, {}, kRead);
    const Json read = program.event("control");
    reply(program, read, {{"silent", true}});
    EXPECT_TRUE(silent.waits());
    EXPECT_TRUE(bus.cancel(silent.transfer));
    EXPECT_EQ(silent.status(), Status::cancelled);
    EXPECT_EQ(program.event("cancelled")["request"], read["request"]);
    EXPECT_EQ(reply(program, read, {{"data", "01"}})["ok"], true);
    EXPECT_EQ(stateOf("clever"), "answers");
}

TEST_F(DeviceProgramTest, HasNoTimeLimitOnceItIsSilent) {
    bool wasInTime = false;
    for (unsigned deadlineMs = 100; !wasInTime; deadlineMs *= 2) {
        Host program(path());
        ASSERT_EQ(serve(program, deadlineMs)["ok"], true);
        Exchange silent(connection, 0, {}, kRead);
        wasInTime = reply(program, program.event("control"), {{"silent", true}})["ok"];
        if (wasInTime) {
            std::this_thread::sleep_for(std::chrono::milliseconds(deadlineMs) + aWhile);
            EXPECT_TRUE(silent.waits());
            EXPECT_TRUE(bus.cancel(silent.transfer));
        }
        EXPECT_EQ(silent.status(), wasInTime ? Status::cancelled : Status::stall);
    }
}

TEST_F(DeviceProgramTest, HearsOfEverythingThatHappensToItsDevice) {
    Host program(path());
    serve(program);
    bus.setAlternate(connection, 1, 1);
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "alternate"}, {"interface", 1}, {"value", 1}}));
    bus.setConfiguration(connection, 0);
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "configuration"}, {"value", 0}}));
    EXPECT_EQ(request({0x00, 9, 1, 0, 0}), Status::completed);
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "configuration"}, {"value", 1}}));
    Exchange waiting(connection, 0x81, Bytes(64));
    const Json in = program.nextEvent();
    bus.resetDevice(connection);
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "cancelled"}, {"request", in["request"]}}));
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "reset"}}));
    EXPECT_EQ(waiting.status(), Status::cancelled);
    bus.unplug("clever");
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "unplugged"}}));
    bus.plug("clever");
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "plugged"}}));
    bus.reset();
    EXPECT_EQ(program.nextEvent(), (Json{{"event", "reset"}}));
}

TEST_F(DeviceProgramTest, ReenumeratesWhileItOwesAnAnswer) {
    Host program(path());
    serve(program);
    Exchange modeSwitch(connection, 0, {1, 2}, kWrite);
    const Json write = program.event("control");
    const Json set = {{"productId", 3}};
    EXPECT_EQ(program.ask({{"op", "change"}, {"device", "clever"}, {"set", set}})["ok"], true);
    EXPECT_EQ(program.ask({{"op", "unplug"}, {"device", "clever"}})["ok"], true);
    EXPECT_EQ(program.ask({{"op", "plug"}, {"device", "clever"}})["ok"], true);
    EXPECT_EQ(modeSwitch.status(), Status::noDevice);
    EXPECT_EQ(program.event("cancelled")["request"], write["request"]);
    EXPECT_EQ(reply(program, write)["ok"], true) << "it is late, and ignored";

    ASSERT_TRUE(eventually([&] { return connectionOf("clever") > connection; }));
    EXPECT_EQ(bus.devices().back()->deviceDescriptor[10], 3);
    Exchange again(connectionOf("clever"), 0, {}, kRead);
    reply(program, program.event("control"), {{"data", "55"}});
    EXPECT_EQ(again.received(), Bytes{0x55});
}

TEST_F(DeviceProgramTest, MayFeedADeviceThatHasJustLeft) {
    Host program(path());
    serve(program);
    ask({{"op", "unplug"}, {"device", "clever"}});
    ask({{"op", "unplug"}, {"device", "other"}});
    const auto feed = [&](const std::string& device) {
        return program.ask({{"op", "feed"}, {"device", device}, {"address", 0x81}, {"data", "0708"}});
    };
    EXPECT_EQ(feed("clever")["ok"], true);
    EXPECT_EQ(feed("other")["error"], "not plugged in: other") << "it has no program";
    ask({{"op", "plug"}, {"device", "clever"}});
    ASSERT_TRUE(eventually([&] { return connectionOf("clever") > connection; }));
    Exchange fresh(connectionOf("clever"), 0x81, Bytes(64));
    reply(program, program.event("in"), {{"data", "05"}});
    EXPECT_EQ(fresh.received(), Bytes{5}) << "what came before is lost";
}

TEST_F(DeviceProgramTest, MayFeedForARequestAsLongAsThatLasts) {
    Host program(path());
    serve(program);
    const auto feed = [&](const Json& request, const std::string& data) {
        EXPECT_EQ(program.ask({{"op", "feed"},
                               {"device", "clever"},
                               {"address", 0x81},
                               {"data", data},
                               {"request", request["request"]}})["ok"],
                  true);
    };
    Exchange first(connection, 0x01, {1});
    const Json before = program.event("out");
    bus.resetDevice(connection);
    EXPECT_EQ(first.status(), Status::cancelled);
    Exchange second(connection, 0x01, {2});
    const Json after = program.event("out");
    feed(before, "01");
    feed(after, "02");
    reply(program, after);
    EXPECT_EQ(second.status(), Status::completed);
    feed(after, "03");
    EXPECT_EQ(Exchange(connection, 0x81, Bytes(64)).received(), Bytes{2});
    Exchange waiting(connection, 0x81, Bytes(64));
    reply(program, program.event("in"), {{"data", "04"}});
    EXPECT_EQ(waiting.received(), Bytes{4});
}

TEST_F(DeviceProgramTest, IsTheOnlyOneForItsDeviceAndItsConnection) {
    Host program(path());
    serve(program);
    Host second(path());
    EXPECT_EQ(serve(second)["error"], "another program answers for this device");
    EXPECT_EQ(reply(second, {{"request", 1}})["error"], "this connection answers for no device");
    EXPECT_EQ(program.ask({{"op", "serve"}, {"device", "other"}})["error"],
              "this connection already answers for clever");
    EXPECT_EQ(second.ask({{"op", "serve"}, {"device", "none"}})["error"], "no such device: none");
    EXPECT_EQ(stateOf("clever"), "answers");
    EXPECT_EQ(stateOf("other"), "");
}

TEST_F(DeviceProgramTest, WithoutOneTheDeviceStalls) {
    EXPECT_EQ(request(kRead), Status::stall);
    EXPECT_EQ(request({0x80, 6, 0x0100, 0, 18}), Status::stall);
    EXPECT_EQ(Exchange(connection, 0x01, {1}).status(), Status::stall);
    EXPECT_EQ(Exchange(connection, 0x81, Bytes(64)).status(), Status::stall);
    EXPECT_EQ(stateOf("clever"), "");
}

TEST_F(DeviceProgramTest, IsDismissedWhenTheDeviceIsRemoved) {
    Host program(path());
    serve(program);
    Exchange waiting(connection, 0, {}, kRead);
    const Json read = program.event("control");
    ask({{"op", "remove"}, {"device", "clever"}});
    EXPECT_EQ(waiting.status(), Status::noDevice);
    EXPECT_EQ(program.event("dismissed")["error"], "the device was removed");
    EXPECT_EQ(reply(program, read)["ok"], false);
}

// What a program does wrong while a request waits for its answer, and what the bus says of it.
struct Misdeed {
    const char* name;
    unsigned deadlineMs;
    std::function<void(std::unique_ptr<Host>& program)> act;
    const char* why;
};

std::function<void(std::unique_ptr<Host>&)> sending(const std::string& line) {
    return [line](std::unique_ptr<Host>& program) {
        program->event("control");
        program->send(line + "\n");
    };
}

class BadDeviceProgram : public DeviceProgramTest, public testing::WithParamInterface<Misdeed> {};

TEST_P(BadDeviceProgram, StallsItsDeviceAloneUntilAnotherServes) {
    auto program = std::make_unique<Host>(path());
    serve(*program, GetParam().deadlineMs);
    Exchange in(connection, 0x81, Bytes(64));
    Exchange out(connection, 0x01, {1});
    Exchange control(connection, 0, {}, kRead);
    Exchange behind(connection, 0, {}, kWrite);
    GetParam().act(program);
    EXPECT_EQ(control.status(), Status::stall);
    EXPECT_EQ(behind.status(), Status::stall);
    EXPECT_EQ(in.status(), Status::stall);
    EXPECT_EQ(out.status(), Status::stall);
    EXPECT_EQ(request(kRead), Status::stall);
    EXPECT_EQ(stateOf("clever"), GetParam().why);
    if (program != nullptr) {
        EXPECT_EQ(program->event("dismissed")["error"], GetParam().why);
    }

    const auto other = connectionOf("other");
    EXPECT_EQ(Exchange(other, 0x01, {1, 2}).status(), Status::completed);
    EXPECT_EQ(Exchange(other, 0x81, Bytes(64)).received(), (Bytes{1, 2}));

    Host next(path());
    EXPECT_EQ(serve(next)["ok"], true);
    EXPECT_EQ(stateOf("clever"), "answers");
    Exchange again(connection, 0, {}, kRead);
    reply(next, next.event("control"), {{"data", "01"}});
    EXPECT_EQ(again.received(), Bytes{1});
}

// The first three requests are those of the endpoints and of the control request.
INSTANTIATE_TEST_SUITE_P(
    All, BadDeviceProgram,
    testing::Values(
        Misdeed{"Dies", 30000, [](std::unique_ptr<Host>& program) { program.reset(); }, "the program ended"},
        Misdeed{"Hangs", 50, [](std::unique_ptr<Host>&) {}, "no answer within 50 ms"},
        Misdeed{"AnswersWhatWasNotAsked", 30000, sending(R"({"op":"reply","request":99})"),
                "invalid answer: there was no such request"},
        Misdeed{"AnswersNothingInParticular", 30000, sending(R"({"op":"reply"})"),
                "invalid answer: there was no such request"},
        Misdeed{"AnswersMoreThanTheHostAsksFor", 30000,
                sending(R"({"op":"reply","request":3,"data":"0102030405"})"),
                "invalid answer: \"data\" has 5 bytes, and the request takes 4"},
        Misdeed{"AnswersAnOutTransferWithData", 30000, sending(R"({"op":"reply","request":2,"data":"01"})"),
                "invalid answer: \"data\" has 1 bytes, and the request takes 0"},
        Misdeed{"AnswersNoHex", 30000, sending(R"({"op":"reply","request":3,"data":"xy"})"),
                "invalid answer: \"data\" is not hexadecimal"},
        Misdeed{"AnswersAnotherType", 30000, sending(R"({"op":"reply","request":3,"stall":"yes"})"),
                "invalid answer: \"stall\" is neither true nor false"},
        Misdeed{"SendsNoJson", 30000, sending("Segmentation fault"),
                "invalid answer: a line is not a JSON object"}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace simtest
