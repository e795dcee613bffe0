// The library's results when memory runs out.
#include <gmock/gmock.h>
#include <libusb.h>

#include "DescriptorBytes.h"
#include "FakeHid.h"
#include "FakeMemory.h"
#include "HidHandling/HidDetection.h"
#include "HidPlatformTest.h"
#include "HotplugUsb/HotplugUsb.h"
#include "JniTest.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

using OutOfMemory = ListTest;
using OutOfMemoryInJava = JniTest;
using HidOutOfMemory = HidPlatformTest;

const std::string kRawComposite = rawConfiguration(
    configurationBytes({interfaceBytes(0, 3), interfaceBytes(1), endpointBytes(0x85), endpointBytes(0x05)}));

}  // namespace

TEST_F(OutOfMemory, AListThatCannotBeMadeTakesNoHandle) {
    startSession({deviceJson("a")});
    const uint32_t next = g_NextDeviceListHandle;
    const int32_t id = kVendor;
    {
        const FailingAllocation list(sizeof(tagUSB_DEVICE_LIST));
        EXPECT_THROW(LibUSB_CreateDeviceList2(context, 1, &id), std::bad_alloc);
    }
    {
        const FailingAllocation list(sizeof(tagUSB_DEVICE_LIST));
        EXPECT_THROW(LibUSB_CreateDeviceList(context, kVendor), std::bad_alloc);
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
    EXPECT_THROW(CreateInternalDeviceList2(context, 1, &id, &status), std::bad_alloc);
    EXPECT_EQ(-102, status);
}

TEST_F(OutOfMemory, AListThatCannotBeFilledLeavesNothingBehind) {
    struct Need {
        std::size_t bytes;
        int times;
    };
    FakeHid hid;
    hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "b"}};
    startSession({deviceJson("a", kRawComposite), deviceJson("b")});
    createList({kVendor + 1});
    const auto watched = g_hotPlugCallback;
    const int32_t ids[] = {kVendor, kVendor + 1};
    // The list; a newly watched id and a count; two devices and an interface; the HID objects.
    for (const Need& need :
         {Need{sizeof(tagUSB_DEVICE_LIST), 1}, Need{kMapNodeBytes - sizeof(void*), 1}, Need{kMapNodeBytes, 1},
          Need{sizeof(DeviceRecord), 3}, Need{sizeof(HidDeviceInfo), 1}, Need{sizeof(HIDAccessRecord), 1}}) {
        for (int nth = 1; nth <= need.times; ++nth) {
            const FailingAllocation missing(need.bytes, nth);
            EXPECT_THROW(LibUSB_CreateDeviceList2(context, 2, ids), std::bad_alloc)
                << need.bytes << ", " << nth;
            EXPECT_EQ(watched, g_hotPlugCallback);
            EXPECT_TRUE(g_refCount.empty());
            EXPECT_EQ(callsOf("libusb_open"), callsOf("libusb_close")) << need.bytes << ", " << nth;
            EXPECT_EQ(nullptr, find_device_list(context, kVendor)) << "no event is lost to it";
        }
    }
    EXPECT_THAT(serialsOf(createList({kVendor, kVendor + 1})), ElementsAre("b", "a", "a_01"));
}

TEST_F(OutOfMemory, AListThatCannotBeFilledStaysInTheChainAndKeepsItsHandle) {
    startSession({deviceJson("a")});
    const uint32_t handle = g_NextDeviceListHandle;
    const int32_t id = kVendor;
    {
        const FailingAllocation record(sizeof(DeviceRecord));
        EXPECT_THROW(LibUSB_CreateDeviceList2(context, 1, &id), std::bad_alloc);
    }
    int32_t status = 0;
    const tagUSB_DEVICE_LIST* left = findDeviceList(handle, status);
    ASSERT_NE(nullptr, left);
    EXPECT_FALSE(isOfRunningSession(*left));
    EXPECT_EQ(handle + 1, createList({kVendor}));
}

TEST_F(OutOfMemory, ASingleCallListThatCannotBeFilledLeavesNothingBehind) {
    startSession({deviceJson("a", kRawComposite), deviceJson("b")});
    for (const int record : {1, 2, 3}) {
        const FailingAllocation any(sizeof(DeviceRecord), record);
        EXPECT_THROW(LibUSB_CreateDeviceList(context, kVendor), std::bad_alloc);
        EXPECT_EQ(nullptr, find_device_list(context, kVendor));
    }
    EXPECT_THAT(serialsOf(createSingleCallList(kVendor)), ElementsAre("b", "a", "a_01"));
}

TEST_F(OutOfMemory, AnUpdateWithoutMemoryChangesNothingAndIsTriedAgain) {
    startSession({deviceJson("a"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    bus.unplug("a");
    plugAndWait("b", list);
    for (const std::size_t bytes : {sizeof(tagUSB_DEVICE_LIST), sizeof(DeviceRecord)}) {
        const FailingAllocation enumerated(bytes);
        EXPECT_THROW(LibUSB_UpdateDeviceList(list, 0), std::bad_alloc);
        EXPECT_EQ(1U, record(list, 0).isPresent);
        EXPECT_TRUE(isFlagged(list));
        EXPECT_THAT(serialsOf(list), ElementsAre("a"));
    }
    bus.unplug("b");
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

TEST_F(OutOfMemory, AReplugWithoutMemoryForTheCountHoldsTheDeviceAllTheSame) {
    startSession({deviceJson("a")});
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS, 2);  // its strings are not read
    const uint32_t list = createList({kVendor});
    bus.unplug("a");
    plugAndWait("a", list);
    {
        const FailingAllocation count(kMapNodeBytes);
        update(list);
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_TRUE(g_refCount.empty());
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_EQ(0, LibUSB_OpenDevice(&record(list, 0)));
    EXPECT_EQ(0, LibUSB_CloseDevice(&record(list, 0)));
}

TEST_F(OutOfMemory, TheHidUnitsContextIsTakenBack) {
    FakeHid hid;
    hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "a"}};
    startSession({deviceJson("a")});
    const FailingAllocation access(sizeof(HIDAccessRecord));
    const int32_t id = kVendor;
    EXPECT_THROW(LibUSB_CreateDeviceList2(context, 1, &id), std::bad_alloc);
    EXPECT_EQ(nullptr, hidUsbContext());
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

TEST_F(OutOfMemoryInJava, AQueryWithoutMemoryForALongerArrayDoesNotPretendThatItGave) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    FakeByteArray array({7});
    {
        const FailingAllocation copy(FailingAllocation::kAnyNoThrow);
        EXPECT_EQ(-11, call(usbGetDeviceDescriptor, list, 0, 1, 0, 18, array.java()));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    {
        const FailingAllocation copy(FailingAllocation::kAnyNoThrow);
        EXPECT_EQ(-11, call(usbGetEndpointList, list, 0, array.java()));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(7, array.bytes[0]);
    EXPECT_EQ(jni.pins, jni.releases);
    EXPECT_EQ(18, call(usbGetDeviceDescriptor, list, 0, 1, 0, 18, array.java()));
    EXPECT_EQ(18, array.bytes[0]);
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
        EXPECT_EQ(-11, call(usbInitialize));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(-1, g_SessionId);
    EXPECT_FALSE(g_eventLoopRunning.load());
    EXPECT_EQ(1U, callsOf("libusb_exit"));
    EXPECT_EQ(0, call(usbInitialize)) << "and the next start works";
}

TEST_F(OutOfMemoryInJava, AnOpenDeviceThatCannotBeEnteredIsClosedAgain) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    for (const bool mapIsThere : {false, true}) {
        // The node of the index, or, before that, the node of the list.
        const std::size_t bytes = mapIsThere ? kMapNodeBytes : 32 + 8 + sizeof(OpenDevices);
        const FailingAllocation entry(bytes, mapIsThere ? 32 + 1 : 1);
        EXPECT_EQ(-11, call(usbOpenDevice, list, 0));
        EXPECT_TRUE(FailingAllocation::happened());
        EXPECT_EQ(0, bus.tally("transfers not freed"));
        EXPECT_EQ(callsOf("libusb_open"), callsOf("libusb_close"));
        EXPECT_EQ(-114, call(usbCloseDevice, list, 0));
    }
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
}

TEST_F(OutOfMemoryInJava, ALookUpThatCannotInsertFindsNothing) {
    openSession({deviceJson("tool")});
    FakeByteArray bytes({1});
    const FailingAllocation list(FailingAllocation::kAnySize);
    EXPECT_EQ(-114, call(usbReadBulkPipe, 4711, 0, 0x81, 1, 1000, bytes.java()));
    EXPECT_TRUE(FailingAllocation::happened());
    EXPECT_EQ(0U, g_DevMap.count(4711));
}

TEST_F(OutOfMemoryInJava, AListWithoutMemoryIsAnsweredWithMinusEleven) {
    openSession({deviceJson("tool")});
    FakeIntArray ids({kVendor});
    {
        const FailingAllocation record(sizeof(DeviceRecord));
        EXPECT_EQ(-11, call(usbCreateDeviceList2, 0, ids.java()));
    }
    {
        const FailingAllocation record(sizeof(DeviceRecord));
        EXPECT_EQ(-11, call(usbCreateDeviceList, 0, kVendor));
    }
    const jint list = listOfVendor();
    unplugAndWait("tool", static_cast<uint32_t>(list));
    const FailingAllocation temporary(sizeof(tagUSB_DEVICE_LIST));
    EXPECT_EQ(-11, call(usbUpdateDeviceList, list, 0));
    EXPECT_EQ(0, call(usbUpdateDeviceList, list, 0));
    EXPECT_EQ('0', infoLine(list, 0).front());
}
