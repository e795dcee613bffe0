// What the library answers when there is no memory for its records.
#include <gmock/gmock.h>
#include <libusb.h>

#include "DescriptorBytes.h"
#include "FakeHid.h"
#include "FakeMemory.h"
#include "HidHandling/HidDetection.h"
#include "HidPlatformTest.h"
#include "HotplugUsb/HotplugUsb.h"
#include "JniTest.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "hid/HIDAccess.h"

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

using OutOfMemory = ListTest;
using OutOfMemoryInJava = JniTest;
using HidOutOfMemory = HidPlatformTest;

constexpr auto kNoMemory = static_cast<uint32_t>(LIBUSB_ERROR_NO_MEM);

const std::string kComposite = rawConfiguration(
    configurationBytes({interfaceBytes(0, 3), interfaceBytes(1), endpointBytes(0x85), endpointBytes(0x05)}));

}  // namespace

TEST_F(OutOfMemory, AListThatCannotBeMadeTakesNoHandle) {
    startSession({deviceJson("a")});
    const uint32_t next = g_NextDeviceListHandle;
    const int32_t id = kVendor;
    for (const bool several : {true, false}) {
        const FailingAllocation list(sizeof(tagUSB_DEVICE_LIST));
        EXPECT_EQ(kNoMemory, several ? LibUSB_CreateDeviceList2(context, 1, &id)
                                     : LibUSB_CreateDeviceList(context, kVendor));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(next, g_NextDeviceListHandle);
    EXPECT_TRUE(g_hotPlugCallback.empty());
    EXPECT_EQ(0U, callsOf("libusb_get_device_list"));
}

TEST_F(OutOfMemory, ATemporaryListThatCannotBeMadeIsTold) {
    startSession({});
    const int32_t id = kVendor;
    int32_t status = 0;
    const FailingAllocation list(sizeof(tagUSB_DEVICE_LIST));
    EXPECT_EQ(nullptr, CreateInternalDeviceList2(context, 1, &id, &status));
    EXPECT_EQ(-102, status);
}

TEST_F(OutOfMemory, ADeviceWithoutMemoryForItsRecordIsLeftOut) {
    startSession({deviceJson("a"), deviceJson("b"), deviceJson("c")});
    std::vector<libusb_device*> devices = libusbsDevices();
    devices.erase(devices.begin() + 1);
    const FailingAllocation second(sizeof(DeviceRecord), 2);
    EXPECT_EQ(devices, devicesOf(createList({kVendor})));
    EXPECT_TRUE(FailingAllocation::happened());
}

TEST_F(OutOfMemory, ADeviceWithoutMemoryForItsChildIsNotSplit) {
    startSession({deviceJson("a", kComposite)});
    const FailingAllocation child(sizeof(DeviceRecord), 2);
    const uint32_t list = createList({kVendor});
    EXPECT_TRUE(FailingAllocation::happened());
    ASSERT_THAT(recordsOf(list), SizeIs(1));
    EXPECT_EQ(kPlainDevice, record(list, 0).familyStatus);
    EXPECT_EQ(nullptr, record(list, 0).pCompositeChild);
}

TEST_F(OutOfMemory, AnUpdateWithoutMemoryIsTriedAgain) {
    startSession({deviceJson("a"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    unplugAndWait("a", list);
    {
        const FailingAllocation enumerated(sizeof(tagUSB_DEVICE_LIST));
        update(list);
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_TRUE(isFlagged(list));
    bus.plug("b");
    update(list);
    EXPECT_EQ(0U, record(list, 0).isPresent);
    EXPECT_THAT(serialsOf(list), ElementsAre("a", "b"));
}

TEST_F(OutOfMemory, AnOpenWithoutMemoryForARecordIsUndone) {
    startSession({deviceJson("a")});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = record(createList({kVendor}), 0);
    const int64_t transfers = bus.tally("transfers not freed");
    for (const std::size_t bytes : {sizeof(tagUSB_CALLBACK_INFO), kMapNodeBytes}) {
        for (const int nth : {1, 2, 17, 32}) {
            const FailingAllocation missing(bytes, nth);
            EXPECT_EQ(-107, LibUSB_OpenDevice(&entry));
            EXPECT_TRUE(FailingAllocation::happened()) << bytes;
            EXPECT_EQ(LIBUSB_ERROR_NO_MEM, entry.lastResult);
            EXPECT_EQ(0U, entry.isOpen);
            EXPECT_EQ(nullptr, entry.hDevice);
            EXPECT_TRUE(entry.callbackInfos.empty());
        }
    }
    EXPECT_EQ(transfers, bus.tally("transfers not freed"));
    EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
}

TEST_F(OutOfMemory, ADeviceWithoutMemoryForItsHidAccessIsNotMarked) {
    FakeHid hid;
    hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "a"}};
    startSession({deviceJson("a")});
    const FailingAllocation access(sizeof(HIDAccessRecord));
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(createList({kVendor}), 0);
    EXPECT_TRUE(FailingAllocation::happened());
    EXPECT_EQ(0, entry.isHid);
    EXPECT_EQ(nullptr, entry.pHIDAccess);
    EXPECT_EQ(10, entry.endpointCount) << "it stays what it was";
}

TEST_F(OutOfMemory, WithoutMemoryForTheListOfHidDevicesNoneIsMarked) {
    FakeHid hid;
    hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "a"}};
    startSession({deviceJson("a")});
    const FailingAllocation listed(sizeof(HidDeviceInfo));
    tagUSB_DEVICE_ACCESS_ENTRY& entry = record(createList({kVendor}), 0);
    EXPECT_EQ(0, entry.isHid);
    EXPECT_TRUE(FailingAllocation::happened());
    const FailingAllocation again(sizeof(HidDeviceInfo));
    EXPECT_EQ(0, HID_MarkHidDevicesInList(entry.pDeviceList)) << "as when the platform cannot be asked";
}

TEST_F(HidOutOfMemory, AnOpenWithoutMemoryForTheDeviceIsUndone) {
    startSession({hidJson("tool")});
    HIDAccess* access = newHIDAccess(kVendor, 0x1001, "tool", 64, 0);
    {
        const FailingAllocation device(FailingAllocation::kAnyNoThrow);
        EXPECT_EQ(-107, access->Open());
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(0, bus.tally("hid devices open"));
    EXPECT_EQ(0, bus.tally("I/O Kit objects in use"));
    EXPECT_EQ(callsOf("IOHIDDeviceDeviceInterface.open"), callsOf("IOHIDDeviceDeviceInterface.close"));
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(0, access->Close());
    deleteHIDAccess(access);
}

TEST_F(OutOfMemoryInJava, ATransferWithoutMemoryForALongerArrayFails) {
    constexpr jint kLength = 1000;
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    FakeByteArray array({7, 8});
    {
        const FailingAllocation copy(kLength);
        EXPECT_EQ(-112, call(usbWriteBulkPipe, list, 0, 0x03, kLength, 1000, array.java()));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
    EXPECT_EQ(jni.pins, jni.releases);
    EXPECT_EQ(kLength, call(usbWriteBulkPipe, list, 0, 0x03, kLength, 1000, array.java()));
}

TEST_F(OutOfMemoryInJava, AControlTransferWithoutMemoryForALongerArrayFails) {
    openSession({deviceJson("tool", R"({"control":[{"requestType":"0xC0","request":1,"reply":""}]})")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    FakeByteArray array({-64, 1, 0, 0, 0, 0, 100, 0});
    const FailingAllocation copy(8 + 100);
    EXPECT_EQ(-113, call(usbReadControlPipe, list, 0, 0, 1000, array.java()));
    EXPECT_TRUE(FailingAllocation::happened());
}

TEST_F(OutOfMemoryInJava, ACallWithAnArrayThatIsLongEnoughTakesNoMemory) {
    openSession({deviceJson("tool", R"({"control":[{"requestType":"0xC0","request":1,"reply":"0102"}]})")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    FakeByteArray setup({-64, 1, 0, 0, 0, 0, 2, 0, 0, 0});
    FakeByteArray bytes({7, 8});
    FakeByteArray descriptor(std::vector<jbyte>(7));
    const FailingAllocation copy(FailingAllocation::kAnyNoThrow);
    EXPECT_EQ(2, call(usbReadControlPipe, list, 0, 0, 1000, setup.java()));
    EXPECT_EQ(2, call(usbWriteBulkPipe, list, 0, 0x03, 2, 1000, bytes.java()));
    EXPECT_EQ(7, call(usbGetDeviceDescriptor, list, 0, 5, 0x81, 7, descriptor.java()));
    EXPECT_FALSE(FailingAllocation::happened());
}

TEST_F(OutOfMemoryInJava, AnEventThreadWithoutMemoryEndsTheStartedContext) {
    {
        const FailingAllocation thread(FailingAllocation::kAnySize);
        EXPECT_EQ(-99, call(usbInitialize));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(-1, g_SessionId);
    EXPECT_FALSE(g_eventLoopRunning.load());
    EXPECT_EQ(1U, callsOf("libusb_exit"));
    EXPECT_EQ(0, call(usbInitialize)) << "and the next start works";
}
