// The drop-in: parsing of configuration descriptors, also invalid ones.
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbConfig : public LibusbTest {
 protected:
    // The parsed descriptor; freed at the end of the test.
    libusb_config_descriptor* parse(const std::string& hex) {
        const Json device = {{"id", "raw"}, {"serial", "RAW"}, {"rawConfigurationDescriptors", {hex}}};
        const Json answer = ask({{"op", "add"}, {"device", device}});
        EXPECT_EQ(answer["ok"], true) << answer;
        result = libusb_get_config_descriptor(this->device("RAW"), 0, &config);
        return config;
    }

    void TearDown() override {
        libusb_free_config_descriptor(config);
        EXPECT_EQ(bus.tally("config descriptors not freed"), 0);
        LibusbTest::TearDown();
    }

    libusb_config_descriptor* config = nullptr;
    int result = 0;
};

TEST_F(LibusbConfig, TheActiveConfigurationIsTakenApart) {
    ASSERT_EQ(libusb_get_active_config_descriptor(device("DOUBLE01"), &config), 0);
    EXPECT_EQ(config->bConfigurationValue, 1);
    EXPECT_EQ(config->wTotalLength, 9 + 9 + 14 + 9 + 9 + 14);
    ASSERT_EQ(config->bNumInterfaces, 2);
    ASSERT_EQ(config->interface[0].num_altsetting, 1);
    const auto& first = config->interface[0].altsetting[0];
    ASSERT_EQ(first.bNumEndpoints, 2);
    EXPECT_EQ(first.endpoint[0].bEndpointAddress, 0x01);
    EXPECT_EQ(first.endpoint[1].bEndpointAddress, 0x81);
    EXPECT_EQ(first.endpoint[1].wMaxPacketSize, 64);
    ASSERT_EQ(config->interface[1].num_altsetting, 2);
    EXPECT_EQ(config->interface[1].altsetting[1].bAlternateSetting, 1);
    EXPECT_EQ(config->interface[1].altsetting[1].endpoint[0].bEndpointAddress, 0x03);
    EXPECT_EQ(config->interface[1].altsetting[0].iInterface, 4);
}

TEST_F(LibusbConfig, ConfigurationsAreFoundByIndexAndByValue) {
    ASSERT_EQ(libusb_get_config_descriptor(device("DOUBLE01"), 1, &config), 0);
    EXPECT_EQ(config->bConfigurationValue, 2);
    libusb_free_config_descriptor(config);
    ASSERT_EQ(libusb_get_config_descriptor_by_value(device("DOUBLE01"), 2, &config), 0);
    EXPECT_EQ(config->bConfigurationValue, 2);
    libusb_config_descriptor* none = nullptr;
    EXPECT_EQ(libusb_get_config_descriptor(device("DOUBLE01"), 2, &none), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_get_config_descriptor_by_value(device("DOUBLE01"), 3, &none), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbConfig, AnUnconfiguredDeviceHasNoActiveOne) {
    ASSERT_EQ(libusb_set_configuration(open("ECHO0001"), 0), 0);
    EXPECT_EQ(libusb_get_active_config_descriptor(device("ECHO0001"), &config), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbConfig, AVanishedDeviceHasNone) {
    libusb_device* echo = device("ECHO0001");
    bus.unplug("echo");
    EXPECT_EQ(libusb_get_active_config_descriptor(echo, &config), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(LibusbConfig, ClassDescriptorsAreExtras) {
    parse(
        "090220000101008032"
        "03300A"
        "0904000001FF00000004210102"
        "07058102400000");
    ASSERT_EQ(result, 0);
    EXPECT_EQ(config->extra_length, 3);
    EXPECT_EQ(config->extra[2], 0x0A);
    const auto& interface = config->interface[0].altsetting[0];
    EXPECT_EQ(interface.extra_length, 4);
    EXPECT_EQ(interface.extra[1], 0x21);
}

TEST_F(LibusbConfig, ALengthThatLiesIsShownAndNotBelieved) {
    parse(
        "0902FFFF0101008032"
        "0904000001FF000000"
        "07058102400000");
    ASSERT_EQ(result, 0);
    EXPECT_EQ(config->wTotalLength, 0xFFFF);
    EXPECT_EQ(config->interface[0].altsetting[0].bNumEndpoints, 1);
}

TEST_F(LibusbConfig, ATotalLengthThatIsTooShortHidesTheRest) {
    parse(
        "090212000101008032"
        "0904000001FF000000"
        "07058102400000");
    ASSERT_EQ(result, LIBUSB_ERROR_IO) << "the interface promises an endpoint that is not there at all";
    config = nullptr;
}

TEST_F(LibusbConfig, ATotalLengthOfNothingIsAnError) {
    parse(
        "090200000101008032"
        "0904000000FF000000");
    EXPECT_EQ(result, LIBUSB_ERROR_IO);
}

TEST_F(LibusbConfig, MoreInterfacesPromisedThanThereAre) {
    parse(
        "090212000501008032"
        "0904000000FF000000");
    ASSERT_EQ(result, 0);
    EXPECT_EQ(config->bNumInterfaces, 1);
}

TEST_F(LibusbConfig, MoreEndpointsPromisedThanThereAre) {
    parse(
        "090222000201008032"
        "0904000003FF000000"
        "07058102400000"
        "0904010000FF000000");
    ASSERT_EQ(result, 0);
    EXPECT_EQ(config->bNumInterfaces, 2);
    EXPECT_EQ(config->interface[0].altsetting[0].bNumEndpoints, 1);
}

TEST_F(LibusbConfig, AZeroLengthInsideIsAnError) {
    parse(
        "090214000101008032"
        "0004"
        "0904000000FF000000");
    EXPECT_EQ(result, LIBUSB_ERROR_IO);
}

TEST_F(LibusbConfig, AZeroLengthExtraIsAnError) {
    parse(
        "090214000101008032"
        "0021"
        "0904000000FF000000");
    EXPECT_EQ(result, LIBUSB_ERROR_IO);
}

TEST_F(LibusbConfig, AnExtraThatRunsOutEndsTheWalk) {
    parse(
        "090214000101008032"
        "FF21"
        "0904000000FF000000");
    ASSERT_EQ(result, 0);
    EXPECT_EQ(config->bNumInterfaces, 0);
}

TEST_F(LibusbConfig, TooManyEndpointsOrInterfacesAreAnError) {
    parse(
        "090212000101008032"
        "0904000021FF000000");
    EXPECT_EQ(result, LIBUSB_ERROR_IO);
    ask({{"op", "remove"}, {"device", "raw"}});
    parse(
        "090212002101008032"
        "0904000000FF000000");
    EXPECT_EQ(result, LIBUSB_ERROR_IO);
}

TEST_F(LibusbConfig, GarbageIsAnError) {
    for (const char* hex : {"", "09", "0902", "0901120001", "FFFFFFFFFFFFFFFFFF", "000000000000000000"}) {
        EXPECT_EQ(parse(hex), nullptr) << hex;
        EXPECT_EQ(result, LIBUSB_ERROR_IO) << hex;
        ask({{"op", "remove"}, {"device", "raw"}});
    }
}

// A valid descriptor may be cut at any byte; the sanitizers check the memory accesses.
TEST_F(LibusbConfig, EveryCutIsSurvived) {
    const std::string whole =
        "09022B000201008032"
        "0904000001FF00000004210102"
        "07058102400000"
        "0904010001FF000000"
        "070501030800FF";
    for (std::size_t length = 0; length <= whole.size(); length += 2) {
        parse(whole.substr(0, length));
        libusb_free_config_descriptor(config);
        config = nullptr;
        ask({{"op", "remove"}, {"device", "raw"}});
    }
}

TEST_F(LibusbConfig, DescriptorsThatAreKeptAreCounted) {
    ASSERT_EQ(libusb_get_active_config_descriptor(device("ECHO0001"), &config), 0);
    EXPECT_EQ(bus.tally("config descriptors not freed"), 1);
    EXPECT_EQ(ask({{"op", "violations"}})["tallies"]["config descriptors not freed"], 1);
}

}  // namespace
}  // namespace simtest
