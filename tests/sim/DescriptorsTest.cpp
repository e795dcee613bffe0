// The descriptor bytes that a host gets from a scenario.
#include "SimTest.h"

namespace simtest {
namespace {

class Descriptors : public SimTest {
 protected:
    simbus::DeviceInfoPtr add(Json device) {
        device["id"] = "made";
        const Json answer = ask({{"op", "add"}, {"device", device}});
        EXPECT_EQ(answer["ok"], true) << answer;
        return bus.devices().back();
    }

    std::string refusal(Json device) {
        device["id"] = "made";
        const Json answer = ask({{"op", "add"}, {"device", device}});
        EXPECT_EQ(answer["ok"], false);
        return answer.value("error", "");
    }

    Bytes stringAt(std::uint8_t index) {
        Bytes data(255);
        simbus::Transfer transfer;
        transfer.setup = {0x80, 6, static_cast<std::uint16_t>(0x0300U | index), 0x0409, 255};
        transfer.data = data.data();
        transfer.length = data.size();
        transfer.done = [] {};
        bus.submit(connectionOf("made"), transfer);
        data.resize(transfer.actual);
        return data;
    }
};

TEST_F(Descriptors, ADeviceDescriptorHoldsTheIdentity) {
    const auto made = add({{"vendorId", "0x6A5C"},
                           {"productId", 4097},
                           {"bcdDevice", "0x0203"},
                           {"deviceClass", 255},
                           {"deviceSubClass", 1},
                           {"deviceProtocol", 2},
                           {"maxPacketSize0", 8},
                           {"manufacturer", "M"},
                           {"serial", "S"},
                           {"interfaces", Json::array()}});
    EXPECT_EQ(made->deviceDescriptor,
              (Bytes{18, 1, 0x00, 0x02, 255, 1, 2, 8, 0x5C, 0x6A, 0x01, 0x10, 0x03, 0x02, 1, 0, 3, 1}));
}

TEST_F(Descriptors, AConfigurationHoldsInterfacesExtrasAndEndpoints) {
    const Json interface = {
        {"number", 2},
        {"class", 3},
        {"subClass", 4},
        {"protocol", 5},
        {"string", "Port"},
        {"extra", "0921110100"},
        {"endpoints",
         {{{"address", "0x83"}, {"type", "interrupt"}, {"maxPacketSize", 512}, {"interval", 7}}}}};
    const auto made = add({{"interfaces", {interface}}});
    EXPECT_EQ(made->configurationDescriptors.at(0),
              (Bytes{9,    2,    30,   0,    1,    1,    0, 0x80, 50,  //
                     9,    4,    2,    0,    1,    3,    4, 5,    4,   //
                     0x09, 0x21, 0x11, 0x01, 0x00,                     //
                     7,    5,    0x83, 3,    0x00, 0x02, 7}));
    EXPECT_EQ(stringAt(4), (Bytes{10, 3, 'P', 0, 'o', 0, 'r', 0, 't', 0}));
}

TEST_F(Descriptors, AlternatesCountAsOneInterface) {
    const auto made =
        add({{"interfaces", {{{"number", 0}}, {{"number", 0}, {"alternate", 1}}, {{"number", 1}}}}});
    EXPECT_EQ(made->configurationDescriptors.at(0)[4], 2);
    EXPECT_EQ(made->configurationDescriptors.at(0).size(), 36U);
}

TEST_F(Descriptors, SuperSpeedEndpointsCarryACompanion) {
    const auto made = add({{"speed", "super"}, {"interfaces", {{{"endpoints", {{{"address", "0x81"}}}}}}}});
    EXPECT_EQ(made->configurationDescriptors.at(0).size(), 9U + 9U + 7U + 6U);
    EXPECT_EQ(made->deviceDescriptor[3], 3);
    EXPECT_EQ(made->deviceDescriptor[7], 9);
}

TEST_F(Descriptors, RawBytesAreToldAsTheyAre) {
    const auto made =
        add({{"rawDeviceDescriptor", "120100"}, {"rawConfigurationDescriptors", {"0902FFFF", ""}}});
    EXPECT_EQ(made->deviceDescriptor, (Bytes{0x12, 1, 0}));
    EXPECT_EQ(made->configurationDescriptors.at(0), (Bytes{9, 2, 0xFF, 0xFF}));
    EXPECT_EQ(made->configurationDescriptors.at(1), Bytes());
}

TEST_F(Descriptors, StringsMayHoldAnyCharacter) {
    add({{"product", "\u00E4\u20AC\U0001F600"}});
    EXPECT_EQ(stringAt(2), (Bytes{10, 3, 0xE4, 0, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE}));
}

TEST_F(Descriptors, LongStringsAreCutToWhatADescriptorHolds) {
    add({{"product", std::string(300, 'x')}, {"manufacturer", std::string(125, 'x') + "\U0001F600"}});
    EXPECT_EQ(stringAt(2).size(), 254U);
    EXPECT_EQ(stringAt(2)[0], 254);
    EXPECT_EQ(stringAt(1).size(), 252U) << "a character is not cut in two";
}

TEST_F(Descriptors, ExtraAndRawStringsGoByIndex) {
    add({{"strings", {{"9", "nine"}, {"10", {{"hex", "FF0341"}}}}}, {"languages", {1033, 1031}}});
    EXPECT_EQ(stringAt(9), (Bytes{10, 3, 'n', 0, 'i', 0, 'n', 0, 'e', 0}));
    EXPECT_EQ(stringAt(10), (Bytes{0xFF, 3, 0x41}));
    EXPECT_EQ(stringAt(0), (Bytes{6, 3, 0x09, 0x04, 0x07, 0x04}));
}

TEST_F(Descriptors, WithoutLanguagesStringZeroFails) {
    add({{"languages", Json::array()}, {"serial", "S"}});
    EXPECT_EQ(stringAt(0), Bytes());
    EXPECT_EQ(stringAt(3), (Bytes{4, 3, 'S', 0}));
}

TEST_F(Descriptors, ADeviceMayStartUnconfigured) {
    const auto made =
        add({{"activeConfiguration", 0}, {"interfaces", {{{"endpoints", {{{"address", 1}}}}}}}});
    EXPECT_EQ(bus.configuration(made->connection), 0);
    EXPECT_FALSE(bus.activeEndpoint(made->connection, 1));
}

TEST_F(Descriptors, WhatIsWrongIsNamed) {
    using testing::HasSubstr;
    EXPECT_THAT(refusal({{"vendorId", "0x12345"}}), HasSubstr("\"vendorId\" is out of range"));
    EXPECT_THAT(refusal({{"vendorId", "vendor"}}), HasSubstr("\"vendorId\" is not a number"));
    EXPECT_THAT(refusal({{"speed", "warp"}}), HasSubstr("\"speed\" is unknown: warp"));
    EXPECT_THAT(refusal({{"serial", 5}}), HasSubstr("\"serial\" is not a string"));
    EXPECT_THAT(refusal({{"plugged", 1}}), HasSubstr("\"plugged\" is neither true nor false"));
    EXPECT_THAT(refusal({{"interfaces", 5}}), HasSubstr("\"interfaces\" is not a list"));
    EXPECT_THAT(refusal({{"interfaces", {{{"extra", "0"}}}}}), HasSubstr("odd number"));
    EXPECT_THAT(refusal({{"interfaces", {{{"extra", "0G"}}}}}), HasSubstr("not hexadecimal"));
    EXPECT_THAT(refusal({{"interfaces", {{{"endpoints", {{{"address", "0x80"}}}}}}}}), HasSubstr("address"));
    EXPECT_THAT(refusal({{"activeConfiguration", 5}}), HasSubstr("none of the configurations"));
}

}  // namespace
}  // namespace simtest
