#include <gmock/gmock.h>
#include <libusb.h>

#include "DescriptorBytes.h"
#include "HotplugUsb/HotplugUsb.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

constexpr uint32_t kEveryVendor = 0xFFFFFFFF;

/// Two devices of kVendor, one of kSecondVendor and one of another vendor.
class SingleCallList : public ListTest {
 protected:
    void SetUp() override {
        ListTest::SetUp();
        startSession({deviceJson("a"), deviceJson("b"), deviceJson("c", R"({"vendorId":"0x6A5D"})"),
                      deviceJson("x", R"({"vendorId":"0x1234"})")});
    }
};

TEST_F(SingleCallList, ListsTheDevicesOfOneVendor) {
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_EQ(libusbsDevices(kVendor), devicesOf(list));
    EXPECT_THAT(serialsOf(list), UnorderedElementsAre("a", "b"));
}

TEST_F(SingleCallList, ListsAllDevicesForAllOnes) {
    const uint32_t list = createSingleCallList(kEveryVendor);
    EXPECT_EQ(libusbsDevices(-1), devicesOf(list));
    EXPECT_THAT(serialsOf(list), UnorderedElementsAre("a", "b", "c", "x"));
}

TEST_F(SingleCallList, HoldsItsVendorInTheFirstSlotAndCountsOne) {
    const tagUSB_DEVICE_LIST& list = listOf(createSingleCallList(kVendor));
    EXPECT_EQ(kVendor, list.vidList[0]);
    EXPECT_THAT(std::vector<int32_t>(list.vidList + 1, list.vidList + 16), Each(-1));
    EXPECT_EQ(1, list.vidCount);
    const tagUSB_DEVICE_LIST& all = listOf(createSingleCallList(kEveryVendor));
    EXPECT_THAT(all.vidList, Each(-1));
    EXPECT_EQ(1, all.vidCount);
}

TEST_F(SingleCallList, TakesTheNextHandleAndItsPlaceInTheChain) {
    const uint32_t watched = createList({kSecondVendor});
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_EQ(watched + 1, list);
    EXPECT_EQ(&listOf(list), listOf(watched).pNextList);
    EXPECT_EQ(&listOf(watched), listOf(list).pPrevList);
    EXPECT_FALSE(listOf(list).changePending.load());
}

TEST_F(SingleCallList, WatchesNothing) {
    createSingleCallList(kVendor);
    createSingleCallList(kEveryVendor);
    EXPECT_TRUE(g_hotPlugCallback.empty());
}

TEST_F(SingleCallList, TakesNoReferences) {
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_TRUE(g_refCount.empty());
    EXPECT_EQ(-1, getRefCount(record(list, 0).pDevice));
    EXPECT_EQ(0U, callsOf("libusb_get_bus_number"));
}

TEST_F(SingleCallList, FillsRecordsLikeEveryOtherList) {
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = recordNamed(createSingleCallList(kVendor), "a");
    EXPECT_STREQ("Talvane", entry.sManufacturer);
    EXPECT_STREQ("Echo Tool", entry.sProduct);
    EXPECT_EQ(18, entry.deviceDescriptorLength);
    EXPECT_EQ(88, entry.configDescriptorLength);
    EXPECT_EQ(10, entry.endpointCount);
    EXPECT_EQ(512U, entry.packetSize);
    EXPECT_EQ(1U, entry.isPresent);
    EXPECT_EQ(nullptr, entry.hDevice);
}

TEST_F(SingleCallList, IsReusedForTheSameVendor) {
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_EQ(list, createSingleCallList(kVendor));
    const uint32_t all = createSingleCallList(kEveryVendor);
    EXPECT_NE(list, all);
    EXPECT_EQ(all, createSingleCallList(kEveryVendor));
    EXPECT_EQ(2U, callsOf("libusb_get_device_list"));
    EXPECT_EQ(0U, callsOf("libusb_hotplug_register_callback"));
}

TEST_F(SingleCallList, ReusesAWatchedListOfItsVendorAlone) {
    const uint32_t watched = createList({kVendor});
    EXPECT_EQ(watched, createSingleCallList(kVendor));
    EXPECT_EQ(1U, callsOf("libusb_get_device_list"));
    EXPECT_EQ(1U, callsOf("libusb_hotplug_register_callback"));
}

TEST_F(SingleCallList, IsReusedByTheCallForSeveralVendorsAndStillWatchesNothing) {
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_EQ(list, createList({kVendor}));
    EXPECT_TRUE(g_hotPlugCallback.empty());
    EXPECT_EQ(0U, callsOf("libusb_hotplug_register_callback"));
    EXPECT_EQ(1U, callsOf("libusb_get_device_list"));
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(SingleCallList, DoesNotReuseAListOfSeveralVendors) {
    const uint32_t several = createList({kVendor, kSecondVendor});
    EXPECT_EQ(several + 1, createSingleCallList(kVendor));
}

TEST_F(SingleCallList, DoesNotReuseAnEmptyList) {
    const uint32_t list = createSingleCallList(kVendor);
    LibUSB_ReleaseDeviceList(list);
    EXPECT_EQ(list + 1, createSingleCallList(kVendor));
    const uint32_t nothing = createSingleCallList(0x4321);
    EXPECT_EQ(nothing + 1, createSingleCallList(0x4321));
}

TEST_F(SingleCallList, TheMakersCompositeDevicesAreSplit) {
    addDevice(
        deviceJson("tool", rawConfiguration(configurationBytes({interfaceBytes(0, 3), interfaceBytes(1),
                                                                endpointBytes(0x85), endpointBytes(0x05)}))));
    const uint32_t list = createSingleCallList(kEveryVendor);
    ASSERT_EQ(6U, recordsOf(list).size());
    EXPECT_STREQ("tool_01", record(list, 5).sSerialNumber);
    EXPECT_EQ(&recordNamed(list, "tool"), record(list, 5).pCompositeParent);
}

TEST_F(SingleCallList, GivesAnEmptyArrayBack) {
    for (const char* id : {"a", "b", "c", "x"}) {
        bus.unplug(id);
    }
    ASSERT_TRUE(libusbsDevices(-1).empty());
    bus.clearCalls();
    EXPECT_TRUE(recordsOf(createSingleCallList(kVendor)).empty());
    EXPECT_EQ(1U, callsOf("libusb_free_device_list"));
}

TEST_F(SingleCallList, FreesNothingWhenTheEnumerationFails) {
    bus.failCall("libusb_get_device_list", 1, LIBUSB_ERROR_IO);
    const uint32_t next = g_NextDeviceListHandle;
    EXPECT_EQ(next, createSingleCallList(kVendor));
    EXPECT_TRUE(recordsOf(next).empty());
    EXPECT_EQ(0U, callsOf("libusb_free_device_list"));
}

TEST_F(SingleCallList, IsFlaggedOnlyWhenAWatchedListStandsBehindIt) {
    const uint32_t list = createSingleCallList(kVendor);
    const uint32_t watched = createList({kVendor, kSecondVendor});
    unplugAndUpdate("a", list);
    EXPECT_EQ(0U, recordNamed(list, "a").isPresent);
    EXPECT_FALSE(isFlagged(watched));
}

TEST_F(SingleCallList, AReleaseLogsWhatItCannotDrop) {
    const uint32_t list = createSingleCallList(kSecondVendor);
    const std::string pointer = pointerText(record(list, 0).pDevice);
    EXPECT_THAT(debugLinesOf([&] { LibUSB_ReleaseDeviceList(list); }),
                ElementsAre("[tlvn_libusb_unref_device] device " + pointer + " not found: c"));
}

}  // namespace
