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

class ListCreation : public ListTest {
 protected:
    uint32_t create(const std::vector<int32_t>& ids) { return createList(ids); }
};

TEST_F(ListCreation, GivesOutHandlesInOrderAndNeverAgain) {
    startSession({deviceJson("one")});
    g_NextDeviceListHandle = 40;
    EXPECT_EQ(40U, create({kVendor}));
    EXPECT_EQ(41U, create({kSecondVendor}));
    LibUSB_ReleaseDeviceList(40);
    EXPECT_EQ(42U, create({kVendor}));
    EXPECT_EQ(43U, g_NextDeviceListHandle);
}

TEST_F(ListCreation, FillsEveryFieldOfARecord) {
    startSession({deviceJson("one", R"({"bus":3})")});
    const uint32_t list = create({kVendor});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(list, 0);
    EXPECT_EQ(nullptr, entry.pPrev);
    EXPECT_EQ(nullptr, entry.pNext);
    EXPECT_EQ(&listOf(list), entry.pDeviceList);
    EXPECT_EQ(0U, entry.isOpen);
    EXPECT_NE(nullptr, entry.pDevice);
    EXPECT_EQ(nullptr, entry.hDevice);
    EXPECT_EQ(nullptr, entry.pCompositeParent);
    EXPECT_EQ(nullptr, entry.pCompositeChild);
    EXPECT_EQ(0U, entry.reserved);
    EXPECT_EQ(0, entry.familyStatus);
    EXPECT_EQ(nullptr, entry.pHIDAccess);
    EXPECT_EQ(0x6A5CU, entry.idVendor);
    EXPECT_EQ(0x1001U, entry.idProduct);
    EXPECT_EQ(0x0100U, entry.bcdDevice);
    EXPECT_EQ(0, entry.isHid);
    EXPECT_EQ(0U, entry.isUnsupportedClass);
    EXPECT_EQ(3, entry.busNumber);
    EXPECT_STREQ("Talvane", entry.sManufacturer);
    EXPECT_STREQ("Echo Tool", entry.sProduct);
    EXPECT_STREQ("one", entry.sSerialNumber);
    EXPECT_EQ(0, entry.interfaceNumber);
    EXPECT_EQ(0, entry.lastResult);
    EXPECT_TRUE(entry.callbackInfos.empty());
}

TEST_F(ListCreation, SetsTheStandingValuesOfARecord) {
    startSession({deviceJson("one")});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_EQ(512U, entry.packetSize);
    EXPECT_EQ(512U, entry.exPacketSize);
    EXPECT_EQ(0U, entry.fillValue);
    EXPECT_EQ(0U, entry.exFillValue);
    EXPECT_EQ(1U, entry.initFlag);
    EXPECT_EQ(1U, entry.changeReported);
    EXPECT_EQ(1U, entry.isPresent);
    EXPECT_EQ(1U, entry.reportedPresent);
}

TEST_F(ListCreation, KeepsTheDeviceDescriptorAsItIs) {
    startSession({deviceJson("one")});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_EQ(18, entry.deviceDescriptorLength);
    EXPECT_THAT(std::vector<uint8_t>(entry.deviceDescriptor, entry.deviceDescriptor + 18),
                ElementsAre(18, 1, 0x00, 0x02, 0, 0, 0, 64, 0x5C, 0x6A, 0x01, 0x10, 0x00, 0x01, 1, 2, 3, 1));
    EXPECT_THAT(std::vector<uint8_t>(entry.deviceDescriptor + 18, entry.deviceDescriptor + 32), Each(0));
}

TEST_F(ListCreation, KeepsConfigurationAndEndpointsOfTheFirstInterface) {
    const DescriptorBytes bytes =
        configurationBytes({interfaceBytes(0), endpointBytes(0x81), endpointBytes(0x01, 3, 512),
                            interfaceBytes(1), endpointBytes(0x82)});
    startSession({deviceJson("one", rawConfiguration(bytes))});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_EQ(bytes, configurationOf(entry));
    EXPECT_EQ(2, entry.endpointCount);
    const std::vector<Endpoint> endpoints = endpointsOf(entry.endpoints);
    EXPECT_EQ((Endpoint{0x81, 1, 2, 64}), endpoints[0]);
    EXPECT_EQ((Endpoint{0x01, 0, 3, 512}), endpoints[1]);
    EXPECT_THAT(std::vector<Endpoint>(endpoints.begin() + 2, endpoints.end()), Each(kUnusedEndpoint));
}

TEST_F(ListCreation, ListsTheDevicesOfItsVendorsInLibusbsOrder) {
    startSession({deviceJson("a"), deviceJson("b", R"({"vendorId":"0x1234"})"), deviceJson("c"),
                  deviceJson("d", R"({"vendorId":"0x6A5D"})")});
    const uint32_t list = create({kVendor, kSecondVendor});
    std::vector<libusb_device*> expected = libusbsDevices(-1);
    expected.erase(std::remove(expected.begin(), expected.end(), libusbsDevices(0x1234)[0]), expected.end());
    EXPECT_EQ(expected, devicesOf(list));
    EXPECT_THAT(serialsOf(list), ::testing::UnorderedElementsAre("a", "c", "d"));
}

TEST_F(ListCreation, TakesACountedReferenceForEachRecord) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = create({kVendor});
    EXPECT_EQ(1, getRefCount(recordNamed(list, "a").pDevice));
    EXPECT_EQ(1, getRefCount(recordNamed(list, "b").pDevice));
    const uint32_t both = create({kVendor, kSecondVendor});
    EXPECT_EQ(2, getRefCount(recordNamed(both, "a").pDevice));
}

TEST_F(ListCreation, GivesLibusbsArrayBack) {
    startSession({deviceJson("a"), deviceJson("b")});
    create({kVendor});
    EXPECT_EQ(1U, callsOf("libusb_get_device_list"));
    EXPECT_EQ(1U, callsOf("libusb_free_device_list"));
}

TEST_F(ListCreation, ClosesEveryDeviceAgain) {
    startSession({deviceJson("a"), deviceJson("b")});
    create({kVendor});
    EXPECT_EQ(2U, callsOf("libusb_open"));
    EXPECT_EQ(2U, callsOf("libusb_close"));
}

TEST_F(ListCreation, WatchesEachVendorId) {
    startSession({deviceJson("a")});
    create({kVendor, 0x1234, -1});
    EXPECT_EQ(1U, g_hotPlugCallback.count(kVendor));
    EXPECT_EQ(1U, g_hotPlugCallback.count(0x1234));
    EXPECT_EQ(1U, g_hotPlugCallback.count(-1));
    EXPECT_EQ(3U, g_hotPlugCallback.size());
}

TEST_F(ListCreation, ReusesAListWithTheSameIds) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor, 0x1234});
    bus.clearCalls();
    EXPECT_EQ(list, create({kVendor, 0x1234}));
    EXPECT_EQ(nullptr, listOf(list).pNextList);
    EXPECT_EQ(0U, callsOf("libusb_get_device_list"));
}

TEST_F(ListCreation, ReusesAListWithTheSameIdsInAnotherOrder) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor, 0x1234, 0x2345});
    EXPECT_EQ(list, create({0x2345, kVendor, 0x1234}));
}

TEST_F(ListCreation, DoesNotNoticeDuplicatesWhenItReuses) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor, kVendor});
    EXPECT_EQ(list, create({kVendor, 0x1234}));
    EXPECT_NE(list, create({kVendor}));
}

TEST_F(ListCreation, SaysThatItReuses) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor});
    char line[128];
    std::snprintf(line, sizeof line,
                  "LibUSB_CreateDeviceList2 such DeviceList already exists; handle= : %u (0x%04X)", list,
                  list);
    EXPECT_THAT(
        debugLinesOf([this] { create({kVendor}); }),
        ElementsAre("", "LibUSB_CreateDeviceList2 01: enter ==============================================",
                    "", line));
}

TEST_F(ListCreation, ReusesTheFirstListThatFits) {
    startSession({deviceJson("a")});
    const uint32_t first = create({kVendor});
    const uint32_t second = create({kVendor, 0x1234});
    EXPECT_EQ(first, create({kVendor}));
    EXPECT_EQ(second, create({kVendor, 0x1234}));
    const uint32_t alike = create({kVendor, kVendor});
    EXPECT_EQ(second + 1, alike);
    EXPECT_EQ(second, create({kVendor, 0x1234})) << "both fit now";
}

TEST_F(ListCreation, ReusesASingleCallListOfTheSameVendor) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    EXPECT_EQ(list, create({kVendor}));
}

TEST_F(ListCreation, DoesNotReuseAListThatFoundNothing) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kSecondVendor});
    EXPECT_EQ(list + 1, create({kSecondVendor}));
}

TEST_F(ListCreation, DoesNotReuseAReleasedList) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor});
    LibUSB_ReleaseDeviceList(list);
    EXPECT_EQ(list + 1, create({kVendor}));
}

TEST_F(ListCreation, DoesNotReuseAListOfAnotherContext) {
    startSession({deviceJson("a")});
    const uint32_t list = create({kVendor});
    libusb_context* other = nullptr;
    ASSERT_EQ(0, libusb_init(&other));
    std::swap(listOf(list).pContext, other);
    EXPECT_EQ(list + 1, create({kVendor}));
    std::swap(listOf(list).pContext, other);
    libusb_exit(other);
}

TEST_F(ListCreation, NoIdsMakeAListOfNothingThatIsNeverReused) {
    startSession({deviceJson("a")});
    const uint32_t list = create({});
    EXPECT_TRUE(recordsOf(list).empty());
    EXPECT_EQ(0, listOf(list).vidCount);
    EXPECT_THAT(listOf(list).vidList, Each(-1));
    EXPECT_EQ(list + 1, create({}));
    EXPECT_TRUE(g_hotPlugCallback.empty());
}

TEST_F(ListCreation, SixteenIdsAreMatchedAndWatched) {
    startSession({deviceJson("a", R"({"vendorId":16})")});
    const uint32_t list = create({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    EXPECT_THAT(serialsOf(list), ElementsAre("a"));
    EXPECT_EQ(16U, g_hotPlugCallback.size());
}

TEST_F(ListCreation, IdsBeyondTheSixteenthAreNeitherMatchedNorWatched) {
    startSession({deviceJson("a"), deviceJson("b", R"({"vendorId":"0x6A5D"})")});
    std::vector<int32_t> ids(17, kVendor);
    ids[16] = kSecondVendor;
    const uint32_t list = create(ids);
    EXPECT_EQ(17, listOf(list).vidCount);
    EXPECT_THAT(serialsOf(list), ElementsAre("a"));
    EXPECT_EQ(0U, g_hotPlugCallback.count(kSecondVendor));
    EXPECT_EQ(list + 1, create(ids));
}

TEST_F(ListCreation, AnIdOfMinusOneStaysInItsSlotAndMatchesNothing) {
    startSession({deviceJson("a"), deviceJson("b", R"({"vendorId":"0x1234"})"),
                  deviceJson("c", R"({"vendorId":"0xFFFF"})")});
    const uint32_t list = create({-1, 0x1234});
    EXPECT_EQ(-1, listOf(list).vidList[0]);
    EXPECT_EQ(0x1234, listOf(list).vidList[1]);
    EXPECT_THAT(serialsOf(list), ElementsAre("b"));
    EXPECT_EQ(list + 1, create({-1, 0x1234}));
}

TEST_F(ListCreation, LeavesOutADeviceWhoseDescriptorCannotBeRead) {
    startSession({deviceJson("a"), deviceJson("b")});
    libusb_device* second = libusbsDevices()[1];
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_IO);
    EXPECT_THAT(devicesOf(create({kVendor})), ElementsAre(second));
}

TEST_F(ListCreation, AFailedEnumerationMakesAnEmptyListThatStays) {
    startSession({deviceJson("a")});
    bus.failCall("libusb_get_device_list", 1, LIBUSB_ERROR_IO);
    const uint32_t list = create({kVendor});
    EXPECT_TRUE(recordsOf(list).empty());
    EXPECT_EQ(list + 1, g_NextDeviceListHandle);
    EXPECT_EQ(0U, callsOf("libusb_free_device_list"));
    EXPECT_EQ(1U, g_hotPlugCallback.count(kVendor));
}

TEST_F(ListCreation, AnEmptyBusGivesAnEmptyListAndFreesNothing) {
    startSession({});
    const uint32_t list = create({kVendor});
    EXPECT_TRUE(recordsOf(list).empty());
    EXPECT_EQ(0U, callsOf("libusb_free_device_list"));
}

TEST_F(ListCreation, ADeviceThatCannotBeOpenedIsListedByItsIds) {
    startSession(
        {deviceJson("a", R"({"vendorId":"0x6A5C","productId":"0x00AB","hostFailures":{"open":-3}})")});
    const uint32_t list = create({kVendor});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(list, 0);
    EXPECT_STREQ("<cannot_open>6A5C:00AB", entry.sManufacturer);
    EXPECT_STREQ("<cannot_open>6A5C:00AB", entry.sProduct);
    EXPECT_STREQ("?", entry.sSerialNumber);
    EXPECT_EQ(0, entry.deviceDescriptorLength);
    EXPECT_EQ(0, entry.configDescriptorLength);
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_EQ(nullptr, entry.hDevice);
    EXPECT_EQ(1U, entry.isPresent);
    EXPECT_EQ(1, getRefCount(entry.pDevice));
    EXPECT_EQ(list, create({kVendor}));
}

TEST_F(ListCreation, GoesOnBehindADeviceThatCannotBeOpened) {
    startSession({deviceJson("a"), deviceJson("b")});
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    const uint32_t list = create({kVendor});
    EXPECT_STREQ("?", record(list, 0).sSerialNumber);
    EXPECT_STRNE("?", record(list, 1).sSerialNumber);
}

TEST_F(ListCreation, AStringThatCannotBeReadStaysUnknown) {
    startSession({deviceJson("a", R"({"languages":[]})")});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_STREQ("?", entry.sManufacturer);
    EXPECT_STREQ("?", entry.sProduct);
    EXPECT_STREQ("?", entry.sSerialNumber);
    EXPECT_EQ(18, entry.deviceDescriptorLength);
}

TEST_F(ListCreation, AStringIsCutAt125Characters) {
    startSession({deviceJson("a", R"({"product":")" + std::string(126, 'p') + R"("})")});
    EXPECT_EQ(std::string(125, 'p'), record(create({kVendor}), 0).sProduct);
}

TEST_F(ListCreation, AStringOfIndexZeroIsReadAsWritten) {
    startSession({deviceJson("a", R"({"manufacturer":null,"languages":[65]})")});
    EXPECT_STREQ("A", record(create({kVendor}), 0).sManufacturer);
}

TEST_F(ListCreation, ADeviceDescriptorThatCannotBeReadAgainLeavesTheRestInPlace) {
    startSession({deviceJson("a", R"({"deviceClass":2})")});
    bus.failCall("libusb_get_device_descriptor", 2, LIBUSB_ERROR_IO);
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_EQ(0, entry.deviceDescriptorLength);
    EXPECT_EQ(0U, entry.isUnsupportedClass);
    EXPECT_STREQ("a", entry.sSerialNumber);
    EXPECT_EQ(88, entry.configDescriptorLength);
    EXPECT_EQ(10, entry.endpointCount);
}

TEST_F(ListCreation, AConfigurationThatCannotBeReadLeavesNone) {
    startSession({deviceJson("a")});
    bus.failCall("libusb_get_active_config_descriptor", 1, LIBUSB_ERROR_NOT_FOUND);
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = record(create({kVendor}), 0);
    EXPECT_EQ(0, entry.configDescriptorLength);
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_THAT(endpointsOf(entry.endpoints), Each(kUnusedEndpoint));
    EXPECT_EQ(18, entry.deviceDescriptorLength);
}

TEST_F(ListCreation, OnlyAWatchedListOfAnEmptyBusKeepsLibusbsArray) {
    const int64_t before = bus.tally("empty device lists not freed");
    startSession({});
    createSingleCallList(kVendor);
    endSession();
    EXPECT_EQ(before, bus.tally("empty device lists not freed"));
    startSession({});
    create({kVendor});
    endSession();
    EXPECT_EQ(before + 1, bus.tally("empty device lists not freed"));
}

}  // namespace
