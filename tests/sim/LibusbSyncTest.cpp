// The drop-in: synchronous transfers.
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbSync : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        echo = open("ECHO0001");
    }

    int control(std::uint8_t type, std::uint8_t request, Bytes& data, unsigned timeout = 0) {
        return libusb_control_transfer(echo, type, request, 0, 0, data.data(),
                                       static_cast<std::uint16_t>(data.size()), timeout);
    }

    libusb_device_handle* echo = nullptr;
};

TEST_F(LibusbSync, ControlTransfersInAndOut) {
    Bytes data = counting(4);
    EXPECT_EQ(control(0x40, 1, data), 4);
    Bytes back(64);
    EXPECT_EQ(control(0xC0, 1, back), 4);
    back.resize(4);
    EXPECT_EQ(back, counting(4));
    Bytes none;
    EXPECT_EQ(control(0x40, 1, none), 0);
}

TEST_F(LibusbSync, AStalledRequestIsAPipeError) {
    Bytes data(4);
    EXPECT_EQ(control(0xC0, 3, data), LIBUSB_ERROR_PIPE);
}

TEST_F(LibusbSync, ASilentRequestTimesOut) {
    Bytes data(4);
    EXPECT_EQ(control(0xC0, 4, data, 10), LIBUSB_ERROR_TIMEOUT);
}

TEST_F(LibusbSync, UnplugEndsAWaitingRequest) {
    Bytes data(4);
    auto waiting = std::async(std::launch::async, [&] { return control(0xC0, 4, data); });
    ASSERT_TRUE(eventually([&] { return bus.pending("echo", 0) == 1; }));
    bus.unplug("echo");
    EXPECT_EQ(waiting.get(), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(LibusbSync, CloseEndsAWaitingRequest) {
    Bytes data(4);
    auto waiting = std::async(std::launch::async, [&] { return control(0xC0, 4, data); });
    ASSERT_TRUE(eventually([&] { return bus.pending("echo", 0) == 1; }));
    close(echo);
    EXPECT_EQ(waiting.get(), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_THAT(takeViolations(),
                testing::ElementsAre("libusb_close: device ECHO0001 has 1 transfer(s) in flight"));
}

TEST_F(LibusbSync, AnotherThreadsHandlingServesToo) {
    EventThread events(context);
    for (int i = 0; i < 200; ++i) {
        Bytes data(4);
        ASSERT_EQ(control(0xC0, 2, data), 4);
    }
}

TEST_F(LibusbSync, PipesAreReadAndWritten) {
    Bytes data = counting(10);
    int moved = 0;
    EXPECT_EQ(libusb_bulk_transfer(echo, 0x01, data.data(), 10, &moved, 0), 0);
    EXPECT_EQ(moved, 10);
    Bytes back(64);
    EXPECT_EQ(libusb_bulk_transfer(echo, 0x81, back.data(), 64, &moved, 0), 0);
    EXPECT_EQ(moved, 10);
    EXPECT_EQ(libusb_interrupt_transfer(echo, 0x02, data.data(), 10, nullptr, 0), 0);
    EXPECT_EQ(libusb_interrupt_transfer(echo, 0x82, back.data(), 64, &moved, 10), 0);
    EXPECT_EQ(moved, 10);
    EXPECT_EQ(libusb_interrupt_transfer(echo, 0x82, back.data(), 64, &moved, 10), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(moved, 0);
    EXPECT_EQ(libusb_bulk_transfer(echo, 0x85, back.data(), 64, &moved, 10), LIBUSB_ERROR_IO);
}

TEST_F(LibusbSync, StringsAreReadAsAscii) {
    unsigned char text[64];
    EXPECT_EQ(libusb_get_string_descriptor_ascii(echo, 3, text, sizeof text), 8);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "ECHO0001");
    EXPECT_EQ(libusb_get_string_descriptor_ascii(echo, 3, text, 5), 4);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "ECHO");
    EXPECT_EQ(libusb_get_string_descriptor_ascii(echo, 0, text, sizeof text), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_get_string_descriptor_ascii(echo, 99, text, sizeof text), LIBUSB_ERROR_PIPE);
}

TEST_F(LibusbSync, OddStringsAreSurvived) {
    ask({{"op", "add"},
         {"device",
          {{"id", "odd"},
           {"serial", "ODD00001"},
           {"strings",
            {{"9", "\u00E4b"},
             {"10", {{"hex", "FF0341"}}},
             {"11", {{"hex", "0403"}}},
             {"12", {{"hex", "04FF4100"}}}}}}}});
    auto* odd = open("ODD00001");
    unsigned char text[64];
    EXPECT_EQ(libusb_get_string_descriptor_ascii(odd, 9, text, sizeof text), 2);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "?b");
    for (const int index : {10, 11, 12}) {
        EXPECT_EQ(
            libusb_get_string_descriptor_ascii(odd, static_cast<std::uint8_t>(index), text, sizeof text),
            LIBUSB_ERROR_IO)
            << index;
    }
}

}  // namespace
}  // namespace simtest
