// Scenarios that are wrong: the message tells the line and the field, and nothing is changed.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "SimTest.h"

namespace simtest {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Scenario : public SimTest {
 protected:
    std::string refusal(const std::string& text) {
        const auto before = bus.devices();
        std::string why = "it was accepted";
        try {
            bus.loadScenario(text);
        } catch (const std::runtime_error& error) {
            why = error.what();
        }
        EXPECT_EQ(bus.devices(), before) << why;
        return why;
    }
    // Of a device on lines of its own: the first is line 2.
    std::string refusalOf(const std::string& device) {
        return refusal("{\"devices\": [{\"id\": \"a\",\n" + device + "}]}");
    }
};

TEST_F(Scenario, WhatIsNotJsonIsToldWithItsLine) {
    EXPECT_THAT(refusal("{\"devices\": [\n {\"id\": \"a\",}\n]}"),
                StartsWith("line 2, column 13: syntax error"));
    EXPECT_THAT(refusal(""), StartsWith("line 1, column 1: "));
    EXPECT_THAT(refusal("{\"devices\":\n[]}}"), StartsWith("line 2, column 4: "));
    EXPECT_THAT(refusal("{\"devices\":\n\n[\"\xFF\"]}"), StartsWith("line 3, column 3: "));
}

TEST_F(Scenario, WhatIsNoScenarioIsNamed) {
    EXPECT_EQ(refusal("5"), "line 1: this is not an object");
    EXPECT_EQ(refusal("{}"), "line 1: \"devices\" must be a list");
    EXPECT_EQ(refusal("{\n\"devices\":\n5}"), "line 2: \"devices\" must be a list");
    EXPECT_EQ(refusal("{\"devices\": [],\n\"devises\": []}"), "line 2: \"devises\" is unknown here");
    EXPECT_EQ(refusal("{\"devices\": [\n5]}"), "line 2: devices[0]: this is not an object");
    EXPECT_EQ(refusal("{\"devices\": [{\"id\": \"a\"},\n{\"id\":\n\"a\"}]}"),
              "line 2: devices[1]: \"id\" is that of another device, too: a");
}

TEST_F(Scenario, TheLineIsThatOfTheField) {
    EXPECT_EQ(refusalOf("\n\n\"vendorId\": \"vendor\""), "line 4: devices[0]: \"vendorId\" is not a number");
    EXPECT_EQ(
        refusalOf("\"serial\": \"{[\\\"}\\\\\", \"interfaces\": [{},\n{\"endpoints\": [{\"address\": 1},\n"
                  "{\"address\": 2, \"type\":\n\"bulky\"}]}]"),
        "line 4: devices[0].interfaces[1].endpoints[1]: \"type\" is unknown: bulky");
    EXPECT_EQ(refusalOf("\"control\": [ {\n\"request\": 1 }, {\n\n\"reply\": \"0\" } ]"),
              "line 5: devices[0].control[1]: \"reply\" has an odd number of hexadecimal digits");
    EXPECT_EQ(refusalOf("\"bus\": 1,\n\"bus\": -1"), "line 3: devices[0]: \"bus\" is out of range")
        << "of two, the last one counts";
    EXPECT_EQ(refusalOf("\"interfaces\": [],\n\"activeConfiguration\": 3"),
              "line 3: devices[0]: \"activeConfiguration\" is none of the configurations");
    EXPECT_EQ(refusal("\xEF\xBB\xBF{\"devices\": [\n{}]}"), "line 2: devices[0]: \"id\" is missing")
        << "after a byte order mark";
}

TEST_F(Scenario, AnUnknownKeyIsNamedEverywhere) {
    const std::string text = " is unknown here";
    EXPECT_EQ(refusalOf("\"vendor\": 1"), "line 2: devices[0]: \"vendor\"" + text);
    EXPECT_EQ(refusalOf("\"hostFailures\": {\n\"close\": -3}"),
              "line 3: devices[0].hostFailures: \"close\"" + text);
    EXPECT_EQ(refusalOf("\"strings\": {\"9\": {\n\"hexa\": \"00\"}}"),
              "line 3: devices[0].strings.9: \"hexa\"" + text);
    EXPECT_EQ(refusalOf("\"configurations\": [{\n\"number\": 1}]"),
              "line 3: devices[0].configurations[0]: \"number\"" + text);
    EXPECT_EQ(refusalOf("\"interfaces\": [{\n\"value\": 1}]"),
              "line 3: devices[0].interfaces[0]: \"value\"" + text);
    EXPECT_EQ(refusalOf("\"interfaces\": [{\"hid\": {\n\"in\": 1}}]"),
              "line 3: devices[0].interfaces[0].hid: \"in\"" + text);
    EXPECT_EQ(refusalOf("\"interfaces\": [{\"endpoints\": [{\"address\": 1,\n\"delay\": 1}]}]"),
              "line 3: devices[0].interfaces[0].endpoints[0]: \"delay\"" + text);
    EXPECT_EQ(refusalOf("\"control\": [{\n\"requesttype\": 1}]"),
              "line 3: devices[0].control[0]: \"requesttype\"" + text);
}

TEST_F(Scenario, AValueOfAnotherTypeIsNamed) {
    EXPECT_EQ(refusalOf("\"control\": {}"), "line 2: devices[0]: \"control\" is not a list");
    EXPECT_EQ(refusalOf("\"strings\": []"), "line 2: devices[0]: \"strings\" is not an object");
    EXPECT_EQ(refusalOf("\"strings\": {\n\"9\": 9}"), "line 3: devices[0].strings.9: this is not an object");
    EXPECT_EQ(refusalOf("\"strings\": {\n\"x\": \"\"}"), "line 3: devices[0].strings: \"x\" is not a number");
    EXPECT_EQ(refusalOf("\"hostFailures\": {\n\"open\": \"no\"}"),
              "line 3: devices[0].hostFailures: \"open\" is not a number");
    EXPECT_EQ(refusalOf("\"vendorId\": 18446744073709551615"),
              "line 2: devices[0]: \"vendorId\" is out of range");
    EXPECT_EQ(
        refusalOf("\"rawDeviceDescriptor\": 18"),
        "line 2: devices[0]: \"rawDeviceDescriptor\" is neither a string of hexadecimal digits nor a text");
    EXPECT_THAT(refusalOf("\"rawConfigurationDescriptors\": [\"\",\n\"x\"]"),
                StartsWith("line 3: devices[0].rawConfigurationDescriptors[1]: "));
    std::string many = "0";
    for (int i = 0; i < 126; ++i) {
        many += ", 0";
    }
    EXPECT_EQ(refusalOf("\"languages\": [" + many + "]"),
              "line 2: devices[0]: \"languages\" has more than 126 entries");
}

TEST_F(Scenario, ARuleThatMakesNoSenseIsNamed) {
    const auto ofRule = [&](const std::string& rule) { return refusalOf("\"control\": [{" + rule + "}]"); };
    const auto ofEndpoint = [&](const std::string& endpoint) {
        return refusalOf("\"interfaces\": [{\"endpoints\": [{" + endpoint + "}]}]");
    };
    EXPECT_THAT(ofRule("\"reply\": \"00\", \"stall\": true"), HasSubstr("control[0]: only one of"));
    EXPECT_THAT(ofRule("\"replies\": []"), HasSubstr("control[0]: \"replies\" has no entry"));
    EXPECT_THAT(ofRule("\"replies\": [\"00\",\n\"0x\"]"),
                AllOf(StartsWith("line 3:"), HasSubstr("control[0].replies[1]: ")));
    EXPECT_THAT(ofRule("\"data\": \"0?0\""), HasSubstr("control[0]: \"data\" has an odd number"));
    EXPECT_THAT(ofRule("\"data\": \"0x\""), HasSubstr("control[0]: \"data\" is not hexadecimal"));
    EXPECT_THAT(ofRule("\"reply\": \"0?\""), HasSubstr("control[0]: \"reply\" is not hexadecimal"));
    EXPECT_THAT(ofRule("\"reply\": {\"txt\": \"\"}"), HasSubstr("control[0].reply: \"txt\" is unknown here"));
    EXPECT_THAT(ofRule("\"reply\": {}"), HasSubstr("control[0].reply: \"text\" is missing"));
    EXPECT_THAT(ofRule("\"setState\": 5"), HasSubstr("control[0]: \"setState\" is not a string"));
    EXPECT_THAT(ofEndpoint("\"address\": 1, \"rules\": [{\"request\": 1}]"),
                HasSubstr("endpoints[0].rules[0]: \"request\" is unknown here"));
    EXPECT_THAT(ofEndpoint("\"address\": 1, \"rules\": [{\"delayMs\": 1}]"),
                HasSubstr("rules[0]: \"delayMs\" delays the reply of this rule, which has none"));
    EXPECT_THAT(ofEndpoint("\"address\": \"0x81\", \"rules\": [{\"data\": \"00\"}]"),
                HasSubstr("rules[0]: \"data\" is unknown here"));
}

TEST_F(Scenario, ABusHasAnAddressForEachDevice) {
    Json devices = Json::array();
    for (int i = 0; i < 128; ++i) {
        devices.push_back({{"id", std::to_string(i)}});
    }
    EXPECT_THAT(refusal(Json{{"devices", devices}}.dump()),
                HasSubstr("devices[127]: \"bus\" has no address left"));
}

TEST_F(Scenario, AFileIsNamed) {
    const std::string path = testing::TempDir() + "scenario-" + std::to_string(getpid());
    const auto refusalOfFile = [&](const std::string& file) {
        try {
            bus.loadScenarioFile(file);
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string("it was accepted");
    };
    std::ofstream(path) << "{\"devices\": [\n{\"id\": 7}]}";
    EXPECT_EQ(refusalOfFile(path), "scenario " + path + ": line 2: devices[0]: \"id\" is not a string");
    std::ofstream(path).close();
    EXPECT_THAT(refusalOfFile(path), StartsWith("scenario " + path + ": line 1, column 1: "));
    EXPECT_EQ(refusalOfFile(path + "/none"), "scenario " + path + "/none: cannot be read");
    EXPECT_EQ(refusalOfFile("/"), "scenario /: cannot be read");
    std::ofstream(path) << R"({"devices": []})";
    bus.loadScenarioFile(path);
    EXPECT_TRUE(bus.devices().empty());
    std::filesystem::remove(path);
}

TEST_F(Scenario, OfARequestTheFieldIsTold) {
    const Json scenario = {{"devices", {{{"id", "a"}, {"speed", "warp"}}}}};
    EXPECT_EQ(ask({{"op", "load"}, {"scenario", scenario}})["error"],
              "scenario.devices[0]: \"speed\" is unknown: warp");
    EXPECT_EQ(ask({{"op", "add"}, {"device", {{"id", "b"}, {"sped", "full"}}}})["error"],
              "\"sped\" is unknown here");
}

}  // namespace
}  // namespace simtest
