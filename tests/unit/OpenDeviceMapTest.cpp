// Opening and closing as Java does it, and the open-device map.
#include <gmock/gmock.h>

#include "JniTest.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

namespace {

class OpenDeviceMap : public JniTest {
 protected:
    void SetUp() override {
        JniTest::SetUp();
        openSession({deviceJson("one"), deviceJson("two")});
        list = listOfVendor();
    }

    tagUSB_DEVICE_ACCESS_ENTRY& first() { return record(static_cast<uint32_t>(list), 0); }

    jint list = -1;
};

}  // namespace

TEST_F(OpenDeviceMap, HoldsAnOpenRecordUntilItIsClosed) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 1));
    EXPECT_EQ(&record(static_cast<uint32_t>(list), 1), g_DevMap.at(list).at(1));
    EXPECT_EQ(0, call(usbCloseDevice, list, 1));
    EXPECT_TRUE(g_DevMap.at(list).empty()) << "the list's own map stays";
}

TEST_F(OpenDeviceMap, HoldsSeveralDevicesOfAList) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 1));
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(2U, g_DevMap.at(list).size());
    EXPECT_EQ(0, call(usbCloseDevice, list, 1));
    EXPECT_EQ(&first(), g_DevMap.at(list).at(0));
    EXPECT_EQ(1U, g_DevMap.at(list).size());
}

TEST_F(OpenDeviceMap, OpensOnlyWhatTheListHas) {
    EXPECT_EQ(-114, call(usbOpenDevice, list, 2));
    EXPECT_EQ(-114, call(usbOpenDevice, list, -1));
    EXPECT_EQ(-114, call(usbOpenDevice, list + 1, 0));
    EXPECT_TRUE(g_DevMap.empty());
}

TEST_F(OpenDeviceMap, CloseOfADeviceThatWasNeverOpenedIsHarmless) {
    EXPECT_EQ(-114, call(usbCloseDevice, list, 0));
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(0, call(usbCloseDevice, list, 0));
}

TEST_F(OpenDeviceMap, ASecondOpenIsRefusedAndKeepsTheSingleEntry) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(-105, call(usbOpenDevice, list, 0));
    EXPECT_EQ(1U, g_DevMap.at(list).size());
    EXPECT_EQ(&first(), g_DevMap.at(list).at(0));
}

TEST_F(OpenDeviceMap, ASecondCloseFindsNothing) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(0, call(usbCloseDevice, list, 0));
    EXPECT_EQ(-114, call(usbCloseDevice, list, 0));
}

TEST_F(OpenDeviceMap, ADeviceThatHasGoneIsNotEntered) {
    unplugAndWait("two", static_cast<uint32_t>(list));
    call(usbUpdateDeviceList, list, 0);
    EXPECT_EQ(-131, call(usbOpenDevice, list, 0));
    EXPECT_TRUE(g_DevMap.empty());
}

TEST_F(OpenDeviceMap, ADeviceOfAForeignClassIsNotEntered) {
    first().isUnsupportedClass = 1;
    EXPECT_EQ(-158, call(usbOpenDevice, list, 0));
    EXPECT_TRUE(g_DevMap.empty());
}

TEST_F(OpenDeviceMap, ADeviceThatCannotBeOpenedIsNotEntered) {
    bus.failCall("libusb_open", 1, -3);
    EXPECT_EQ(-107, call(usbOpenDevice, list, 0));
    EXPECT_TRUE(g_DevMap.empty());
}

TEST_F(OpenDeviceMap, AFailedCloseStillForgetsTheDevice) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    first().isOpen = 0;  // as an update leaves the record of a device that was plugged in again
    EXPECT_EQ(-109, call(usbCloseDevice, list, 0));
    EXPECT_TRUE(g_DevMap.at(list).empty());
    EXPECT_EQ(-114, call(usbCloseDevice, list, 0));
}

TEST_F(OpenDeviceMap, ALookUpOfAnUnknownListLeavesAnEmptyMapForIt) {
    EXPECT_EQ(-114, call(usbResetDevice, 41, 0));
    EXPECT_EQ(-114, call(usbCloseDevice, 42, 0));
    EXPECT_EQ(-114, call(usbResetPipe, 43, 0, 1));
    for (const int32_t unknown : {41, 42, 43}) {
        ASSERT_EQ(1U, g_DevMap.count(unknown));
        EXPECT_TRUE(g_DevMap.at(unknown).empty());
    }
}

TEST_F(OpenDeviceMap, ALookUpOfAnUnknownIndexInsertsNothing) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(-114, call(usbResetDevice, list, 5));
    EXPECT_EQ(1U, g_DevMap.at(list).size());
}

TEST_F(OpenDeviceMap, AReopenedIndexReplacesItsOldEntry) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    g_DevMap[list][0] = &record(static_cast<uint32_t>(list), 1);
    first().isOpen = 0;
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(&first(), g_DevMap.at(list).at(0));
}

TEST_F(OpenDeviceMap, ReleasingAListDoesNotTouchIt) {
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(0, call(usbReleaseDeviceList, list));
    EXPECT_EQ(1U, g_DevMap.at(list).size());
}

TEST_F(OpenDeviceMap, ResetNeedsAnOpenDeviceAndKeepsItOpen) {
    EXPECT_EQ(-114, call(usbResetDevice, list, 0));
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(0, call(usbResetDevice, list, 0));
    EXPECT_EQ(1U, callsOf("libusb_reset_device"));
    EXPECT_EQ(&first(), g_DevMap.at(list).at(0));
}

TEST_F(OpenDeviceMap, RestartIsNotOfferedForAnyListedDevice) {
    EXPECT_EQ(-120, call(usbRestartDevice, list, 0));
    EXPECT_EQ(-114, call(usbRestartDevice, list, 2));
    EXPECT_EQ(-114, call(usbRestartDevice, list + 1, 0));
    EXPECT_TRUE(g_DevMap.empty()) << "restart looks at the list only";
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(-120, call(usbRestartDevice, list, 0));
}

TEST_F(OpenDeviceMap, OpenAndCloseWorkWithoutLookingAtTheSession) {
    g_SessionId = -1;
    EXPECT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(0, call(usbResetDevice, list, 0));
    EXPECT_EQ(0, call(usbCloseDevice, list, 0));
    g_SessionId = 0;
}
