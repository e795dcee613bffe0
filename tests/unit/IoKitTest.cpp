// The macOS side, call by call: the result of each failure of the system, and that nothing leaks.
#include <IOKit/hid/IOHIDKeys.h>
#include <gmock/gmock.h>

#include "Gate.h"
#include "HidHandling/HidDetection.h"
#include "HidHandling/HidServicesIOKit.h"
#include "HidPlatformTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"
#include "hid/IOKitObjects.h"

namespace {

using ::testing::SizeIs;

/// The device "high" with its reports on the run loop of the test's own thread.
class OnThisThreadsLoop {
 public:
    explicit OnThisThreadsLoop(std::function<void()> onReport) : onReport_(std::move(onReport)) {
        EXPECT_EQ(HidOpenResult::opened, hidOperations().open(kVendor, 0x8001, "?", &device_));
        const auto arrived = [](void* self, const uint8_t*, int32_t) {
            static_cast<OnThisThreadsLoop*>(self)->onReport_();
        };
        EXPECT_TRUE(hidOperations().startInput(device_, buffer_, sizeof buffer_, arrived, this));
    }
    ~OnThisThreadsLoop() {
        hidOperations().stopInput(device_);
        hidOperations().close(device_);
    }
    OnThisThreadsLoop(const OnThisThreadsLoop&) = delete;
    OnThisThreadsLoop& operator=(const OnThisThreadsLoop&) = delete;

    bool runPeriod() const { return hidOperations().runPeriod(device_); }

 private:
    HidDevice* device_ = nullptr;
    uint8_t buffer_[64] = {};
    std::function<void()> onReport_;
};

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
    /// The result of Open when the n-th call of a system function fails.
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

TEST_F(IoKit, AnIdOf0x8000OrAboveFindsItsServices) {
    HIDAccess* high = newHIDAccess(kVendor, 0x8001, "?", 64, 0);
    uint8_t buffer[64];
    EXPECT_EQ(0, high->Open());
    EXPECT_EQ(0, high->Close());
    EXPECT_EQ(41, high->GetConfigDescriptorBuffer(buffer, 64));
    deleteHIDAccess(high);
}

TEST_F(IoKit, AReadThreadThatCannotBeSetUpEndsAtOnce) {
    const std::pair<const char*, IOReturn> failures[] = {
        {"getAsyncEventSource", kIOReturnError},
        {"getAsyncEventSource", kIOReturnSuccess},  // and returns no source
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

TEST_F(IoKit, ASilentDeviceWakesTheReadThreadEveryHalfAMillisecond) {
    expectPeriods("CFRunLoopRunInMode", std::chrono::microseconds(500));
}

TEST_F(IoKit, CloseStopsTheRunLoopFromWhichItIsCalled) {
    EXPECT_EQ(0, access->Open());
    const OnThisThreadsLoop other([this] { EXPECT_EQ(0, access->Close()); });
    bus.feed("high", 0x81, {1});
    bool runs = true;
    EXPECT_TRUE(
        eventually([&] { return !(runs = other.runPeriod()) || access->ppDeviceInterface == nullptr; }));
    EXPECT_FALSE(runs) << "the period in which the device was closed";
}

TEST_F(IoKit, CloseDoesNotStopTheNextRunOfALoopThatIsIdle) {
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1U, callsOf("CFRunLoopStop"));
    EXPECT_TRUE(OnThisThreadsLoop([] {}).runPeriod());
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

TEST_F(IoKit, AReportIsSentWithTheCallersTimeOut) {
    uint8_t bytes[64] = {};
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(64, access->Write(bytes, 64, 1234));
    EXPECT_EQ(1234, bus.tally("time-out of the latest setReport"));
    EXPECT_EQ(0, access->Close());
}

TEST_F(IoKit, AConfigurationReadLeavesTheReferencesOfOthersAlone) {
    ServiceMatch match("IOUSBDevice");
    match.requireId(CFSTR("idProduct"), 0x1001);
    const IOOwned libusbs(match.first());
    uint8_t buffer[64];
    for (const char* function :
         {"nothing", "nothing", "IOCreatePlugInInterfaceForService", "IOCFPlugInInterface.QueryInterface",
          "IOUSBDeviceInterface.GetNumberOfConfigurations",
          "IOUSBDeviceInterface.GetConfigurationDescriptorPtr"}) {
        bus.failCall(function, 1, kIOReturnError);
        access->GetConfigDescriptorBuffer(buffer, 64);
        bus.clearFaults();
        EXPECT_EQ(1U, IOObjectGetUserRetainCount(libusbs.get())) << function;
    }
}

TEST_F(IoKit, AnOpenDeviceHoldsItsService) {
    const IOOwned services(ServiceMatch(kIOHIDDeviceKey).all());
    const IOOwned tool(IOIteratorNext(services.get()));
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(2U, IOObjectGetUserRetainCount(tool.get()));
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1U, IOObjectGetUserRetainCount(tool.get()));
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
    addDevice(hidJson("zero", R"({"productId":0})"));
    const IOOwned services(ServiceMatch(kIOHIDDeviceKey).all());
    const IOOwned tool(IOIteratorNext(services.get()));
    const IOOwned high(IOIteratorNext(services.get()));
    const IOOwned zero(IOIteratorNext(services.get()));
    int16_t number = 77;
    char text[kStringBytes];
    EXPECT_EQ(0, GetIntProperty(tool.get(), CFSTR(kIOHIDProductIDKey), &number));
    EXPECT_EQ(0x1001, number);
    EXPECT_EQ(-1, GetIntProperty(high.get(), CFSTR(kIOHIDProductIDKey), &number)) << "read as a negative one";
    EXPECT_EQ(-1, GetIntProperty(tool.get(), CFSTR(kIOHIDProductKey), &number)) << "a text";
    EXPECT_EQ(-1, GetIntProperty(tool.get(), CFSTR("Nothing"), &number));
    EXPECT_EQ(0x1001, number);
    EXPECT_EQ(0, GetIntProperty(zero.get(), CFSTR(kIOHIDProductIDKey), &number));
    EXPECT_EQ(0, number);
    EXPECT_EQ(0, GetStringProperty(tool.get(), CFSTR(kIOHIDManufacturerKey), text));
    EXPECT_STREQ("Caf\xC3\xA9 \xE2\x82\xAC", text);
    EXPECT_EQ(-1, GetStringProperty(high.get(), CFSTR(kIOHIDSerialNumberKey), text));
    EXPECT_STREQ("?", text);
    EXPECT_EQ(-1, GetStringProperty(tool.get(), CFSTR(kIOHIDVendorIDKey), text)) << "a number";
    EXPECT_STREQ("?", text);
}

TEST_F(IoKit, ATextOfMoreThan127BytesIsEmpty) {
    const std::string fits = std::string(118, 'p') + "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC";
    addDevice(hidJson("long", R"({"serial":")" + std::string(126, 's') + R"(","manufacturer":")" + fits +
                                  R"(","product":"p)" + fits + R"("})"));
    std::vector<HidDeviceInfo> devices;
    EXPECT_TRUE(hidOperations().list(devices));
    ASSERT_THAT(devices, SizeIs(3));
    EXPECT_EQ(std::string(126, 's'), devices[2].serialNumber);
    EXPECT_EQ(fits, devices[2].manufacturer);
    EXPECT_EQ("", devices[2].product);
}

class IoKitReports : public HidPlatformTest {
 protected:
    /// Delays the read thread, as a busy machine does, until `action` has ended.
    void whileTheReadThreadIsHeldBack(const std::function<void()>& action) {
        const auto gate = std::make_shared<Gate>();
        bus.onCall("CFRunLoopRunInMode", [gate] { gate->pass(); });
        ASSERT_TRUE(eventually([&] { return gate->arrivals() == 1; })) << "it is out of its last period";
        action();
        bus.clearHooks();
        gate->open();
    }
    /// Makes the device send these reports, each with its number in the first byte.
    void send(int first, int count) {
        for (int i = first; i < first + count; ++i) {
            std::vector<uint8_t> report(64);
            report[0] = static_cast<uint8_t>(i);
            bus.feed("tool", 0x81, report);
            EXPECT_TRUE(eventually([&] { return callsOf("hid report queued") > static_cast<uint64_t>(i); }));
        }
    }
    int64_t dropped() { return bus.tally("hid reports dropped") - before_; }
    void expectNext(int number) {
        EXPECT_EQ(64, read(64));
        EXPECT_EQ(number, received[0]);
    }

 private:
    const int64_t before_ = bus.tally("hid reports dropped");
};

TEST_F(IoKitReports, TheSystemDropsWhatItsQueueDoesNotHoldAndTheRestIsRead) {
    constexpr int kHeld = 170;  // reports of 64 bytes
    openTool();
    bus.clearCalls();
    whileTheReadThreadIsHeldBack([this] {
        send(0, kHeld + 30);
        EXPECT_TRUE(eventually([this] { return dropped() == 30; }));
    });
    for (int number = 0; number < kHeld; ++number) {
        expectNext(number);
    }
    EXPECT_EQ(-150, read(64, 10));
    send(kHeld + 30, 1);
    expectNext(kHeld + 30);
}

TEST_F(IoKitReports, AReportThatTheSystemDropsIsMissingInTheMiddle) {
    openTool();
    bus.clearCalls();
    bus.failCall("hid report queued", 2, kIOReturnError);
    send(0, 3);
    expectNext(0);
    expectNext(2);
    EXPECT_EQ(1, dropped());
}

/// HID drivers that register after their devices have been plugged in.
class IoKitLateDrivers : public HidPlatformTest {
 protected:
    void holdDriversBack() { bus.failCall("hid driver registered", 1, kIOReturnError, 1'000'000); }
    void letDriversRegister() { bus.clearFaults(); }
};

TEST_F(IoKitLateDrivers, ADeviceWhoseDriverIsLateIsAPlainOneToThatListForGood) {
    startSession({hidJson("other"), hidJson("tool", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    holdDriversBack();
    plugAndUpdate("tool", list);
    letDriversRegister();
    EXPECT_EQ(0, recordNamed(list, "tool").isHid);
    EXPECT_EQ(-108, LibUSB_OpenDevice(&recordNamed(list, "tool")));
    unplugAndUpdate("other", list);
    EXPECT_EQ(0, recordNamed(list, "tool").isHid);
    EXPECT_EQ(1, recordNamed(createList({kVendor, kSecondVendor}), "tool").isHid);
}

}  // namespace
