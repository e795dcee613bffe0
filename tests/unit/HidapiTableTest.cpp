// The Linux side, call by call: the result of each failure of hidapi, and that nothing leaks.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <utility>

#include "CallArguments.h"
#include "DescriptorBytes.h"
#include "FakeClock.h"
#include "HidPlatformTest.h"
#include "HotplugUsb/HotplugUsb.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"

namespace {

using ::testing::ElementsAre;

class HidapiTable : public HidPlatformTest {};

TEST_F(HidapiTable, WithoutHidapiThereIsNoList) {
    startSession({hidJson("one")});
    std::vector<HidDeviceInfo> devices;
    bus.failCall("hid_init", 1, -1);
    EXPECT_FALSE(hidOperations().list(devices));
    EXPECT_TRUE(hidOperations().list(devices));
    EXPECT_EQ(1U, devices.size());
}

TEST_F(HidapiTable, ASerialNumberThatTheKernelCutsIsNeverMarked) {
    startSession({hidJson("short", R"({"serial":")" + std::string(63, 's') + "\"}"),
                  hidJson("long", R"({"serial":")" + std::string(64, 'l') + "\"}")});
    const uint32_t list = createList({kVendor});
    EXPECT_EQ(1, recordNamed(list, std::string(63, 's')).isHid);
    EXPECT_EQ(0, recordNamed(list, std::string(64, 'l')).isHid);
}

TEST_F(HidapiTable, EachFailureOfAnOpenHasItsAnswer) {
    startSession({hidJson("one")});
    HIDAccess* access = newHIDAccess(kVendor, 0x1001, "one", 64, 0);
    bus.failCall("hid_enumerate", 1, -1);
    EXPECT_EQ(-131, access->Open());
    bus.failCall("hid_open_path", 1, -1);
    EXPECT_EQ(-107, access->Open());
    bus.failCall("hid_open_path", 2, -1);
    EXPECT_EQ(-107, access->Open()) << "it can be read and not written";
    EXPECT_EQ(0, bus.tally("hid devices open"));
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(0, access->Close());
    deleteHIDAccess(access);
}

TEST_F(HidapiTable, EachFailureOfAConfigurationReadIsNotReadable) {
    startSession({hidJson("one")});
    createList({kVendor});
    HIDAccess* access = newHIDAccess(kVendor, 0x1001, "one", 64, 0);
    uint8_t buffer[64];
    EXPECT_EQ(-131, access->GetConfigDescriptorBuffer(buffer, 64)) << "no context";
    setHidUsbContext(context);
    for (const char* function : {"libusb_get_device_list", "libusb_open", "libusb_control_transfer"}) {
        bus.failCall(function, 1, -1);
        EXPECT_EQ(-131, access->GetConfigDescriptorBuffer(buffer, 64)) << function;
    }
    EXPECT_EQ(41, access->GetConfigDescriptorBuffer(buffer, 64));
    setHidUsbContext(nullptr);
    deleteHIDAccess(access);
}

TEST_F(HidapiTable, BytesBehindAShortenedConfigurationAreZero) {
    startSession({hidJson("one", R"({"control":[{"requestType":"0x80","request":6,"value":"0x0200",
        "reply":"09020C00010100803209040000000300"}]})")});
    createList({kVendor});
    uint8_t buffer[64];
    EXPECT_EQ(12, readConfiguration(buffer, 64));
    EXPECT_EQ(0, buffer[12]);
    EXPECT_EQ(0, buffer[14]);
}

TEST_F(HidapiTable, FourBytesOfAConfigurationAreEnoughToSayItsLength) {
    startSession({hidJson("one", configurationReply({9, 2, 3, 0, 0, 1, 0, 0x80, 50}))});
    uint8_t buffer[4];
    EXPECT_EQ(3, readConfiguration(buffer, 4));
}

TEST_F(HidapiTable, TheFirstConfigurationIsAskedForByNoMoreThanALengthCanSay) {
    startSession({hidJson("one")});
    const CallArguments arguments;
    std::vector<uint8_t> buffer(0x10000);
    for (const int32_t size : {64, 0x10000}) {
        readConfiguration(buffer.data(), size);
    }
    EXPECT_THAT(CallArguments::of("libusb_control_transfer"),
                ElementsAre(ElementsAre(0x80, 6, 0x0200, 0, 64, 1000),
                            ElementsAre(0x80, 6, 0x0200, 0, 0xFFFF, 1000)));
}

TEST_F(HidapiTable, AnEmptyBusHasNoConfigurationAndItsListIsGivenBack) {
    startSession({});
    uint8_t buffer[64];
    EXPECT_EQ(-131, readConfiguration(buffer, 64));
    EXPECT_EQ(1U, callsOf("libusb_get_device_list"));
    EXPECT_EQ(1U, callsOf("libusb_free_device_list"));
}

TEST_F(HidapiTable, OnlyTheAsciiOfATextIsKept) {
    startSession({hidJson("one", R"({"serial":"\u0001\u007f\u0080\u20ac"})")});
    std::vector<HidDeviceInfo> devices;
    EXPECT_TRUE(hidOperations().list(devices));
    EXPECT_EQ("\x01\x7F\xEF\xBF\xBD\xEF\xBF\xBD", devices.at(0).serialNumber);
}

TEST_F(HidapiTable, ASilentDeviceWakesTheReadThreadEveryFiveMilliseconds) {
    expectPeriods("hid_read_timeout", std::chrono::milliseconds(5));
}

TEST_F(HidapiTable, TheReadThreadSleepsByItselfOnlyWhenTheDeviceHasGone) {
    FakeClock clock;
    std::atomic<int> sleeps{0};
    clock.beforeSleep = [&, test = std::this_thread::get_id()](const timespec& period) {
        const std::thread::id self = std::this_thread::get_id();
        if (self != test && self != g_eventLoopThread.get_id()) {
            EXPECT_EQ(5'000'000, period.tv_nsec);
            ++sleeps;
        }
    };
    openTool();
    EXPECT_TRUE(eventually([&] { return callsOf("hid_read_timeout") >= 3; }));
    EXPECT_EQ(0, sleeps);
    bus.unplug("tool");
    EXPECT_TRUE(eventually([&] { return sleeps >= 3; }));
    EXPECT_EQ(0, LibUSB_CloseDevice(std::exchange(tool_, nullptr)));
    deinitHotplugUsb();  // threads that sleep must end before the clock
}

}  // namespace
