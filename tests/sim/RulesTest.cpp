// Rules for control requests and for transfers at endpoints.
#include "SimTest.h"

namespace simtest {
namespace {

using simbus::Setup;
using simbus::Status;

Bytes bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

class Rules : public SimTest {
 protected:
    // A device with bulk endpoints 01/81, and with what the test adds.
    void add(const Json& keys, const Json& outKeys = Json::object(), const Json& inKeys = Json::object()) {
        Json out = {{"address", "0x01"}};
        Json in = {{"address", "0x81"}};
        out.update(outKeys);
        in.update(inKeys);
        Json device = {{"id", "made"}, {"interfaces", {{{"endpoints", {out, in}}}}}};
        device.update(keys);
        const Json answer = ask({{"op", "add"}, {"device", device}});
        ASSERT_EQ(answer["ok"], true) << answer;
        made = connectionOf("made");
    }

    Bytes get(std::uint8_t request, std::uint16_t length = 64) {
        return Exchange(made, 0, {}, {0xC0, request, 0, 0, length}).received();
    }
    Status put(std::uint8_t request, const Bytes& data) {
        return Exchange(made, 0, data, {0x40, request, 0, 0, static_cast<std::uint16_t>(data.size())})
            .status();
    }
    Status write(const Bytes& data) { return Exchange(made, 0x01, data).status(); }
    Bytes read() { return Exchange(made, 0x81, Bytes(512)).received(); }
    Bytes answerTo(const std::string& text) {
        EXPECT_EQ(write(bytes(text)), Status::completed);
        return read();
    }
    static std::string state() { return ask({{"op", "devices"}})["devices"].back().value("state", "none"); }

    simbus::ConnectionId made = 0;
};

TEST_F(Rules, RepliesComeInTurnAndBeginAgain) {
    add({{"control",
          {{{"request", 1}, {"replies", {"01", "02", ""}}}, {{"request", 2}, {"replies", {"AA", "BB"}}}}}});
    EXPECT_EQ(get(1), Bytes{1});
    EXPECT_EQ(get(2), Bytes{0xAA}) << "each rule has its own turn";
    EXPECT_EQ(get(1), Bytes{2});
    EXPECT_EQ(get(1), Bytes());
    EXPECT_EQ(get(1), Bytes{1});
    bus.unplug("made");
    bus.plug("made");
    made = connectionOf("made");
    EXPECT_EQ(get(1), Bytes{1}) << "a plug begins again";
}

TEST_F(Rules, AStateSelectsRulesAndLastsUntilTheUnplug) {
    add({{"state", "off"},
         {"control",
          {{{"requestType", "0x40"}, {"request", 1}, {"state", "off"}, {"setState", "on"}},
           {{"requestType", "0x40"}, {"request", 1}, {"stall", true}, {"setState", "broken"}},
           {{"request", 2}, {"state", "off"}, {"reply", "00"}},
           {{"request", 2}, {"state", "on"}, {"reply", "01"}}}}});
    EXPECT_EQ(state(), "off");
    EXPECT_EQ(get(2), Bytes{0});
    EXPECT_EQ(put(1, {}), Status::completed);
    EXPECT_EQ(state(), "on");
    EXPECT_EQ(get(2), Bytes{1});
    EXPECT_EQ(bus.resetDevice(made), Status::completed);
    EXPECT_EQ(get(2), Bytes{1});
    EXPECT_EQ(put(1, {}), Status::stall);
    EXPECT_EQ(state(), "broken");
    bus.unplug("made");
    bus.plug("made");
    EXPECT_EQ(state(), "off");
}

TEST_F(Rules, AResetOfTheBusBringsBackTheFirstStateAndReply) {
    bus.loadScenario(R"({"devices": [{"id": "made", "state": "first", "control": [
        {"request": 1, "replies": ["01", "02"], "setState": "second"}]}]})");
    made = connectionOf("made");
    EXPECT_EQ(get(1), Bytes{1});
    bus.reset();
    EXPECT_EQ(connectionOf("made"), made) << "it stays plugged in";
    EXPECT_EQ(state(), "first");
    EXPECT_EQ(get(1), Bytes{1});
}

TEST_F(Rules, DataMatchesWhatBeginsWithIt) {
    add({{"control",
          {{{"request", 1}, {"data", "01FF"}, {"setState", "one"}},
           {{"request", 1}, {"data", "0?02"}, {"setState", "two"}},
           {{"request", 1}, {"data", {{"text", "on"}}}, {"setState", "text"}},
           {{"request", 1}, {"length", 3}, {"setState", "three"}},
           {{"request", 1}, {"stall", true}, {"setState", "none"}}}}});
    const auto stateAfter = [&](const Bytes& data) {
        put(1, data);
        return state();
    };
    EXPECT_EQ(stateAfter({0x01, 0xFF}), "one");
    EXPECT_EQ(stateAfter({0x01, 0xFF, 0x03}), "one");
    EXPECT_EQ(stateAfter({0x09, 0x02}), "two");
    EXPECT_EQ(stateAfter({0x19, 0x02}), "none");
    EXPECT_EQ(stateAfter(bytes("one")), "text");
    EXPECT_EQ(stateAfter({4, 5, 6}), "three");
    EXPECT_EQ(stateAfter({0x01}), "none") << "shorter than what it should begin with";
    EXPECT_EQ(stateAfter({}), "none");
}

TEST_F(Rules, ARequestForDataMatchesNoData) {
    add({{"control",
          {{{"request", 1}, {"data", "00"}, {"reply", "01"}},
           {{"request", 1}, {"length", 5}, {"reply", "05"}},
           {{"request", 1}, {"reply", "02"}}}}});
    EXPECT_EQ(get(1), Bytes{2});
    EXPECT_EQ(get(1, 5), Bytes{5}) << "the length that the host requests";
}

TEST_F(Rules, ADelayedRequestEndsLater) {
    add({{"control",
          {{{"request", 1}, {"reply", "01"}, {"delayMs", 50}}, {{"request", 2}, {"delayMs", 600000}}}}});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(get(1), Bytes{1});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    Exchange never(made, 0, {}, {0xC0, 2, 0, 0, 1});
    EXPECT_TRUE(never.waits());
    EXPECT_TRUE(bus.cancel(never.transfer));
    EXPECT_EQ(never.status(), Status::cancelled);
}

TEST_F(Rules, WhatIsWrittenToAnEndpointIsAnsweredAtTheOther) {
    add(Json::object(), {{"rules",
                          {{{"data", {{"text", "*IDN?"}}}, {"reply", {{"text", "Maker,Meter\n"}}}},
                           {{"data", {{"text", "MEAS?"}}}, {"replies", {"31", "32"}}}}}});
    EXPECT_EQ(answerTo("*IDN?\n"), bytes("Maker,Meter\n"));
    EXPECT_EQ(answerTo("MEAS?\n"), bytes("1"));
    EXPECT_EQ(answerTo("MEAS?\n"), bytes("2"));
    EXPECT_EQ(write(bytes("OTHER")), Status::completed) << "what no rule matches is taken";
    Exchange in(made, 0x81, Bytes(64));
    EXPECT_TRUE(in.waits()) << "and not echoed";
    EXPECT_TRUE(bus.cancel(in.transfer));
    EXPECT_EQ(bus.received("made", 0x01).size(), 4U);
}

TEST_F(Rules, WhatNoRuleMatchesIsDoneAsTheBehaviourSays) {
    add(Json::object(), {{"behaviour", "stall"}, {"rules", {{{"data", "01"}, {"reply", "AA"}}}}});
    EXPECT_EQ(write({1}), Status::completed);
    EXPECT_EQ(read(), Bytes{0xAA});
    EXPECT_EQ(write({2}), Status::stall);
    EXPECT_EQ(write({1}), Status::completed);
    ask({{"op", "endpoint"}, {"device", "made"}, {"address", 1}, {"set", {{"behaviour", "echo"}}}});
    EXPECT_EQ(write({2}), Status::completed);
    EXPECT_EQ(read(), Bytes{0xAA}) << "of the second write";
    EXPECT_EQ(read(), Bytes{2});
}

TEST_F(Rules, AnEndpointStallsUntilTheHostClearsIt) {
    add(Json::object(), {{"rules", {{{"data", "FF"}, {"stall", true}, {"setState", "stalled"}}}}});
    EXPECT_EQ(write({0}), Status::completed);
    EXPECT_EQ(write({0xFF}), Status::stall);
    EXPECT_EQ(state(), "stalled");
    EXPECT_EQ(write({0}), Status::stall) << "it is halted";
    EXPECT_EQ(bus.clearHalt(made, 0x01), Status::completed);
    EXPECT_EQ(write({0}), Status::completed);
}

TEST_F(Rules, AReplyCanComeLateAndKeepsItsPlace) {
    add(Json::object(), {{"rules",
                          {{{"data", "01"}, {"reply", "AA"}, {"delayMs", 50}},
                           {{"data", "02"}, {"reply", "BB"}},
                           {{"data", "03"}, {"reply", "CC"}, {"delayMs", 600000}}}}});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(write({1}), Status::completed);
    EXPECT_EQ(write({2}), Status::completed);
    EXPECT_EQ(read(), Bytes{0xAA});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    EXPECT_EQ(read(), Bytes{0xBB});
    EXPECT_EQ(write({3}), Status::completed);
    Exchange in(made, 0x81, Bytes(64));
    EXPECT_TRUE(in.waits());
    bus.unplug("made");
    EXPECT_EQ(in.status(), Status::noDevice);
}

TEST_F(Rules, AReadIsAnsweredByTheRulesOfItsEndpoint) {
    add(Json::object(), {{"rules", {{{"data", "01"}, {"reply", "EE"}, {"setState", "on"}}}}},
        {{"rules", {{{"state", "on"}, {"replies", {"01", "02"}}}}}});
    Exchange in(made, 0x81, Bytes(64));
    EXPECT_TRUE(in.waits()) << "for a state in which there is something to read";
    EXPECT_EQ(write({1}), Status::completed);
    EXPECT_EQ(in.received(), Bytes{0xEE}) << "a reply of a write comes first";
    EXPECT_EQ(read(), Bytes{1});
    EXPECT_EQ(read(), Bytes{2});
    EXPECT_EQ(read(), Bytes{1});
}

TEST_F(Rules, AWaitingReadIsAnsweredInTheStateThatItsRuleRequires) {
    add({{"control", {{{"request", 1}, {"setState", "on"}}}}}, Json::object(),
        {{"rules", {{{"state", "on"}, {"reply", "01"}, {"setState", "off"}}}}});
    Exchange in(made, 0x81, Bytes(64));
    Exchange next(made, 0x81, Bytes(64));
    EXPECT_TRUE(in.waits());
    EXPECT_EQ(put(1, {}), Status::completed);
    EXPECT_EQ(in.received(), Bytes{1});
    EXPECT_TRUE(next.waits());
    EXPECT_EQ(put(1, {}), Status::completed);
    EXPECT_EQ(next.received(), Bytes{1});
}

TEST_F(Rules, ADelayedReadOfARuleEndsLater) {
    add(Json::object(), Json::object(),
        {{"rules",
          {{{"length", 3}, {"delayMs", 600000}, {"reply", "03"}}, {{"reply", "04"}, {"delayMs", 30}}}}});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(read(), Bytes{4});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    Exchange in(made, 0x81, Bytes(3));
    EXPECT_TRUE(in.waits());
    EXPECT_TRUE(bus.cancel(in.transfer));
}

TEST_F(Rules, SlotsAreSharedByAllPipes) {
    add({{"control",
          {{{"requestType", "0x40"}, {"request", 1}, {"store", "s"}}, {{"request", 2}, {"fetch", "s"}}}}},
        {{"rules", {{{"data", "AA"}, {"fetch", "s"}}, {{"store", "s"}}}}});
    EXPECT_EQ(put(1, {1, 2}), Status::completed);
    EXPECT_EQ(write({0xAA}), Status::completed);
    EXPECT_EQ(read(), (Bytes{1, 2}));
    EXPECT_EQ(write({3}), Status::completed);
    EXPECT_EQ(get(2), Bytes{3});
}

TEST_F(Rules, ASilentRuleLeavesATransferWaiting) {
    add(Json::object(), {{"rules", {{{"data", "01"}, {"silent", true}}}}});
    Exchange out(made, 0x01, {1});
    EXPECT_TRUE(out.waits());
    ask({{"op", "endpoint"}, {"device", "made"}, {"address", 1}, {"set", {{"rules", nullptr}}}});
    EXPECT_EQ(out.status(), Status::completed) << "the change takes effect at once";
}

TEST_F(Rules, AProgramThatIsNotThereStalls) {
    add(Json::object(), {{"rules", {{{"data", "01"}, {"program", true}}}}},
        {{"rules", {{{"program", true}}}}});
    EXPECT_EQ(write({1}), Status::stall);
    EXPECT_EQ(Exchange(made, 0x81, Bytes(1)).status(), Status::stall);
    EXPECT_EQ(write({2}), Status::completed);
}

}  // namespace
}  // namespace simtest
