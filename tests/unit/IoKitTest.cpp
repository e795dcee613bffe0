// The macOS side, call by call: what each failure of the system gives, and that nothing is left behind.
#include <IOKit/hid/IOHIDKeys.h>
#include <gmock/gmock.h>

#include "HidHandling/HidDetection.h"
#include "HidHandling/HidServicesIOKit.h"
#include "HidPlatformTest.h"
#include "MacOSXUSBAccess/records/SharedField.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"
#include "hid/IOKitObjects.h"

namespace {

using ::testing::SizeIs;

class IoKit : public HidPlatformTest {
 protected:
    void SetUp() override {
        HidPlatformTest::SetUp();
        startSession({hidJson("tool", R"({"manufacturer":"Caf\u00e9 \u20ac"})"),
                      hidJson("high", R"({"productId":"0x8001","serial":null})")});
    }
    void TearDown() override {
        deleteHIDAccess(access);
        HidPlatformTest::TearDown();
    }
    /// What Open answers when the n-th call of a system's function fails.
    int openWithout(const std::string& function, unsigned nth = 1) {
        bus.failCall(function, nth, kIOReturnError);
        const int result = access->Open();
        bus.clearFaults();
        EXPECT_EQ(nullptr, access->ppDeviceInterface);
        EXPECT_EQ(0, bus.tally("I/O Kit objects in use")) << function;
        return result;
    }
    int configurationWithout(const std::string& function, IOReturn code = kIOReturnError) {
        uint8_t buffer[64];
        bus.failCall(function, 1, code);
        const int result = access->GetConfigDescriptorBuffer(buffer, 64);
        bus.clearFaults();
        EXPECT_EQ(0, bus.tally("I/O Kit objects in use")) << function;
        return result;
    }

    HIDAccess* access = newHIDAccess(kVendor, 0x1001, "tool", 64, 0);
};

TEST_F(IoKit, EachFailureOfAnOpenHasItsAnswer) {
    EXPECT_EQ(-131, openWithout("IOServiceMatching"));
    EXPECT_EQ(-131, openWithout("CFStringCreateWithBytes"));
    EXPECT_EQ(-131, openWithout("CFNumberCreate", 1));
    EXPECT_EQ(-131, openWithout("CFNumberCreate", 2));
    EXPECT_EQ(-131, openWithout("IOServiceGetMatchingService"));
    EXPECT_EQ(-131, openWithout("IOCreatePlugInInterfaceForService"));
    EXPECT_EQ(-107, openWithout("IOCFPlugInInterface.QueryInterface"));
    EXPECT_EQ(-107, openWithout("IOHIDDeviceDeviceInterface.open"));
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(0, access->Close());
}

TEST_F(IoKit, TheSerialNumberIsLeftOutOfTheMatchForAnyDevice) {
    HIDAccess* any = newHIDAccess(kVendor, 0x1001, "?", 64, 0);
    bus.failCall("CFStringCreateWithBytes", 1, kIOReturnError);
    EXPECT_EQ(0, any->Open()) << "made and not used";
    bus.clearFaults();
    EXPECT_EQ(0, any->Close());
    deleteHIDAccess(any);
}

TEST_F(IoKit, AnIdOf0x8000OrAboveFindsNoService) {
    HIDAccess* high = newHIDAccess(kVendor, 0x8001, "?", 64, 0);
    uint8_t buffer[64];
    EXPECT_EQ(-131, high->Open());
    EXPECT_EQ(-131, high->GetConfigDescriptorBuffer(buffer, 64));
    deleteHIDAccess(high);
}

TEST_F(IoKit, AReadThreadThatCannotBeSetUpEndsAtOnce) {
    const std::pair<const char*, IOReturn> failures[] = {
        {"getAsyncEventSource", kIOReturnError},
        {"getAsyncEventSource", kIOReturnSuccess},  // and gives none
        {"setInputReportCallback", kIOReturnError},
    };
    for (const auto& [function, code] : failures) {
        bus.failCall(std::string("IOHIDDeviceDeviceInterface.") + function, 1, code);
        EXPECT_EQ(0, access->Open());
        EXPECT_TRUE(eventually([&] { return loadShared(access->threadState) == kReadThreadEnded; }));
        EXPECT_EQ(0, access->Close());
        bus.clearFaults();
        EXPECT_EQ(0, bus.tally("I/O Kit objects in use")) << function;
    }
}

TEST_F(IoKit, AStoppedRunLoopEndsTheReadThread) {
    EXPECT_EQ(0, access->Open());
    EXPECT_TRUE(eventually([&] { return loadShared(access->threadState) == kReadThreadRuns; }));
    bus.failCall("CFRunLoopRunInMode", 1, kCFRunLoopRunStopped);
    EXPECT_TRUE(eventually([&] { return loadShared(access->threadState) == kReadThreadEnded; }));
    EXPECT_EQ(0, access->Close());
}

TEST_F(IoKit, CloseStopsTheCallersOwnRunLoop) {
    EXPECT_EQ(0, access->Open());
    bus.clearCalls();
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1U, callsOf("CFRunLoopStop"));
}

TEST_F(IoKit, CloseClosesTheInterface) {
    EXPECT_EQ(0, access->Open());
    bus.clearCalls();
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1U, callsOf("IOHIDDeviceDeviceInterface.close"));
}

TEST_F(IoKit, AReportThatCannotBeSentIsTold) {
    uint8_t bytes[64] = {};
    EXPECT_EQ(0, access->Open());
    bus.failCall("IOHIDDeviceDeviceInterface.setReport", 2, kIOReturnError);
    EXPECT_EQ(64, access->Write(bytes, 64, 100));
    EXPECT_EQ(-112, access->Write(bytes, 64, 100));
    EXPECT_EQ(64, access->Write(bytes, 64, 100));
    EXPECT_EQ(0, access->Close());
}

TEST_F(IoKit, EachFailureOfAConfigurationReadIsNotReadable) {
    EXPECT_EQ(41, configurationWithout("nothing"));
    for (const char* function :
         {"IOServiceMatching", "IOServiceGetMatchingService", "IOCreatePlugInInterfaceForService",
          "IOCFPlugInInterface.QueryInterface", "IOUSBDeviceInterface.GetNumberOfConfigurations",
          "IOUSBDeviceInterface.GetConfigurationDescriptorPtr", "CFNumberCreate"}) {
        EXPECT_EQ(-131, configurationWithout(function)) << function;
    }
}

TEST_F(IoKit, AConfigurationThatTheSystemDoesNotHandOutIsNotReadable) {
    EXPECT_EQ(-131,
              configurationWithout("IOUSBDeviceInterface.GetConfigurationDescriptorPtr", kIOReturnSuccess));
}

TEST_F(IoKit, ADeviceWithoutConfigurationHasNoneToRead) {
    addDevice(deviceJson("bare", R"({"productId":"0x1009","interfaces":null})"));
    HIDAccess* bare = newHIDAccess(kVendor, 0x1009, "?", 64, 0);
    uint8_t buffer[64];
    EXPECT_EQ(-131, bare->GetConfigDescriptorBuffer(buffer, 64));
    EXPECT_EQ(0U, callsOf("IOUSBDeviceInterface.GetConfigurationDescriptorPtr"));
    deleteHIDAccess(bare);
}

TEST_F(IoKit, WithoutTheServicesThereIsNoList) {
    std::vector<HidDeviceInfo> devices;
    for (const char* function : {"IOServiceMatching", "IOServiceGetMatchingServices"}) {
        bus.failCall(function, 1, kIOReturnError);
        EXPECT_FALSE(hidOperations().list(devices)) << function;
        bus.clearFaults();
        EXPECT_EQ(0, bus.tally("I/O Kit objects in use")) << function;
    }
    EXPECT_TRUE(hidOperations().list(devices));
    EXPECT_THAT(devices, SizeIs(2));
    EXPECT_EQ(0, bus.tally("I/O Kit objects in use"));
}

TEST_F(IoKit, PropertiesAreReadAsNumbersAndTexts) {
    const IOOwned services(ServiceMatch(kIOHIDDeviceKey).all());
    const IOOwned tool(IOIteratorNext(services.get()));
    const IOOwned high(IOIteratorNext(services.get()));
    int16_t number = 77;
    char text[kPropertyTextBytes];
    EXPECT_EQ(0, GetIntProperty(tool.get(), CFSTR(kIOHIDProductIDKey), &number));
    EXPECT_EQ(0x1001, number);
    EXPECT_EQ(-1, GetIntProperty(high.get(), CFSTR(kIOHIDProductIDKey), &number)) << "does not fit";
    EXPECT_EQ(-1, GetIntProperty(tool.get(), CFSTR(kIOHIDProductKey), &number)) << "a text";
    EXPECT_EQ(-1, GetIntProperty(tool.get(), CFSTR("Nothing"), &number));
    EXPECT_EQ(0x1001, number);
    EXPECT_EQ(0, GetStringProperty(tool.get(), CFSTR(kIOHIDManufacturerKey), text));
    EXPECT_STREQ("Caf\xC3\xA9 \xE2\x82\xAC", text);
    EXPECT_EQ(-1, GetStringProperty(high.get(), CFSTR(kIOHIDSerialNumberKey), text));
    EXPECT_STREQ("?", text);
    EXPECT_EQ(-1, GetStringProperty(tool.get(), CFSTR(kIOHIDVendorIDKey), text)) << "a number";
    EXPECT_STREQ("?", text);
}

TEST_F(IoKit, ATextIsCutAt127Bytes) {
    addDevice(hidJson("long", R"({"productId":"0x2222","serial":")" + std::string(126, 's') +
                                  R"(","product":")" + std::string(120, 'p') + R"(\u20ac\u20ac\u20ac"})"));
    std::vector<HidDeviceInfo> devices;
    EXPECT_TRUE(hidOperations().list(devices));
    ASSERT_THAT(devices, SizeIs(3));
    EXPECT_EQ(std::string(126, 's'), devices[2].serialNumber);
    EXPECT_EQ(127U, devices[2].product->size());
}

}  // namespace
