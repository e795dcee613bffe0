// The control protocol, as a test program uses it.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::HasSubstr;

class ControlProtocolTest : public SimTest {
 protected:
    static void expectRefusal(const Json& request, const std::string& text) {
        const Json answer = ask(request);
        EXPECT_EQ(answer["ok"], false) << request;
        EXPECT_THAT(answer.value("error", ""), HasSubstr(text)) << request;
    }

    static Json expectOk(const Json& request) {
        const Json answer = ask(request);
        EXPECT_EQ(answer["ok"], true) << request << answer;
        return answer;
    }
};

TEST_F(ControlProtocolTest, PingNamesTheFront) {
    EXPECT_EQ(ask({{"op", "ping"}}), (Json{{"ok", true}, {"front", "memory"}}));
}

TEST_F(ControlProtocolTest, DevicesTellsAllThatThereAre) {
    const Json devices = expectOk({{"op", "devices"}})["devices"];
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_EQ(devices[0]["id"], "echo");
    EXPECT_EQ(devices[0]["plugged"], true);
    EXPECT_EQ(devices[0]["vendorId"], 0x6A5C);
    EXPECT_EQ(devices[0]["productId"], 0x1001);
    EXPECT_EQ(devices[0]["bcdDevice"], 0x0102);
    EXPECT_EQ(devices[0]["serial"], "ECHO0001");
    EXPECT_EQ(devices[2]["plugged"], false);
}

TEST_F(ControlProtocolTest, PlugAndUnplug) {
    expectOk({{"op", "plug"}, {"device", "away"}});
    expectRefusal({{"op", "plug"}, {"device", "away"}}, "already plugged in");
    expectOk({{"op", "unplug"}, {"device", "away"}});
    expectRefusal({{"op", "unplug"}, {"device", "away"}}, "already unplugged");
    expectRefusal({{"op", "plug"}, {"device", "nobody"}}, "no such device: nobody");
}

TEST_F(ControlProtocolTest, AddAndRemove) {
    expectOk({{"op", "add"}, {"device", {{"id", "new"}, {"serial", "NEW"}}}});
    EXPECT_EQ(bus.devices().back()->serial, "NEW");
    expectRefusal({{"op", "add"}, {"device", {{"id", "new"}}}}, "already a device new");
    expectRefusal({{"op", "add"}, {"device", {{"serial", "x"}}}}, "\"id\" is missing");
    expectOk({{"op", "remove"}, {"device", "new"}});
    expectRefusal({{"op", "remove"}, {"device", "new"}}, "no such device");
    EXPECT_EQ(connectionOf("new"), 0U);
}

TEST_F(ControlProtocolTest, AChangeIsSeenAtTheNextPlug) {
    expectOk({{"op", "change"}, {"device", "echo"}, {"set", {{"serial", "CHANGED"}, {"product", nullptr}}}});
    EXPECT_EQ(bus.devices().front()->serial, "ECHO0001");
    expectOk({{"op", "unplug"}, {"device", "echo"}});
    expectOk({{"op", "plug"}, {"device", "echo"}});
    EXPECT_EQ(bus.devices().back()->serial, "CHANGED");
    EXPECT_EQ(bus.devices().back()->deviceDescriptor[15], 0) << "no product string any more";
}

TEST_F(ControlProtocolTest, AChangeThatIsWrongChangesNothing) {
    expectRefusal({{"op", "change"}, {"device", "echo"}, {"set", {{"serial", "X"}, {"speed", "warp"}}}},
                  "speed");
    expectRefusal({{"op", "change"}, {"device", "echo"}, {"set", {{"id", "other"}}}}, "id of a device");
    expectRefusal({{"op", "change"}, {"device", "echo"}, {"set", 5}}, "\"set\" must be an object");
    expectOk({{"op", "change"}, {"device", "echo"}, {"set", {{"bus", 1}}}});
    expectRefusal({{"op", "change"}, {"device", "echo"}, {"set", {{"bus", 1.0}}}}, "is not a number");
    expectOk({{"op", "unplug"}, {"device", "echo"}});
    expectOk({{"op", "plug"}, {"device", "echo"}});
    EXPECT_EQ(bus.devices().back()->serial, "ECHO0001");
}

TEST_F(ControlProtocolTest, FeedReceivedAndPending) {
    expectOk({{"op", "feed"}, {"device", "echo"}, {"address", "0x81"}, {"data", "00FFa0"}});
    EXPECT_EQ(expectOk({{"op", "pending"}, {"device", "echo"}, {"address", "0x81"}})["count"], 0);
    const Json none = expectOk({{"op", "received"}, {"device", "echo"}, {"address", 1}});
    EXPECT_EQ(none["packets"], Json::array());

    Bytes bytes{0xDE, 0xAD};
    simbus::Transfer out;
    out.endpoint = 0x01;
    out.data = bytes.data();
    out.length = bytes.size();
    out.done = [] {};
    bus.submit(connectionOf("echo"), out);
    const Json request = {{"op", "received"}, {"device", "echo"}, {"address", "0x01"}, {"clear", true}};
    EXPECT_EQ(expectOk(request)["packets"], Json::array({"DEAD"}));
    EXPECT_EQ(expectOk(request)["packets"], Json::array());
}

TEST_F(ControlProtocolTest, EndpointsThatAreNotThereAreRefused) {
    expectRefusal({{"op", "pending"}, {"device", "echo"}, {"address", "0x8F"}}, "no such endpoint");
    expectRefusal({{"op", "pending"}, {"device", "away"}, {"address", "0x81"}}, "not plugged in");
    expectRefusal({{"op", "pending"}, {"device", "echo"}}, "\"address\" is missing");
    expectRefusal({{"op", "received"}, {"device", "echo"}, {"address", "0x0F"}}, "no such endpoint");
    expectRefusal({{"op", "endpoint"}, {"device", "echo"}, {"address", "0x8F"}, {"set", Json::object()}},
                  "no such endpoint");
}

TEST_F(ControlProtocolTest, FaultsCallsAndViolations) {
    expectOk({{"op", "fault"}, {"call", "libusb_error_name"}, {"nth", 1}, {"code", -3}, {"times", 1}});
    expectRefusal({{"op", "fault"}, {"call", "libusb_open"}}, "\"code\" is missing");
    expectRefusal({{"op", "fault"}, {"call", "libusb_open"}, {"code", -3}, {"nth", 0}}, "count from 1");
    expectOk({{"op", "clearFaults"}});
    expectOk({{"op", "clearCalls"}});
    libusb_error_name(0);
    EXPECT_EQ(expectOk({{"op", "calls"}})["calls"], (Json{{"libusb_error_name", 1}}));
    bus.addViolation("wrong");
    EXPECT_EQ(expectOk({{"op", "violations"}})["violations"], Json::array({"wrong"}));
    expectOk({{"op", "clearViolations"}});
    EXPECT_EQ(expectOk({{"op", "violations"}})["violations"], Json::array());
}

TEST_F(ControlProtocolTest, OnAKernelFrontThereAreNoCalls) {
    bus.setFront(simbus::Bus::Front::kernel);
    EXPECT_EQ(ask({{"op", "ping"}})["front"], "kernel");
    for (const char* op : {"fault", "clearFaults", "calls", "clearCalls", "violations", "clearViolations"}) {
        EXPECT_EQ(ask({{"op", op}, {"call", "x"}, {"code", 1}}),
                  (Json{{"ok", false}, {"error", "no such operation on this bus"}}));
    }
    bus.setFront(simbus::Bus::Front::memory);
}

TEST_F(ControlProtocolTest, ResetGoesBackToTheScenario) {
    bus.unplug("echo");
    bus.failCall("libusb_open", 1, -1);
    bus.addViolation("wrong");
    expectOk({{"op", "reset"}});
    EXPECT_NE(connectionOf("echo"), 0U);
    EXPECT_TRUE(bus.violations().empty());
}

TEST_F(ControlProtocolTest, WhatIsNoRequestGetsAnError) {
    for (const char* line :
         {"", "{", "5", "[]", "null", "\"ping\"", "{}", R"({"op": 5})", R"({"op": "dance"})"}) {
        const Json answer = Json::parse(bus.command(line));
        EXPECT_EQ(answer["ok"], false) << line;
        EXPECT_TRUE(answer["error"].is_string()) << line;
    }
    EXPECT_THAT(ask({{"op", "dance"}})["error"], HasSubstr("unknown operation: dance"));
    EXPECT_EQ(Json::parse(bus.command("\xFF"))["ok"], false);
}

}  // namespace
}  // namespace simtest
