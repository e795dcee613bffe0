#include <gmock/gmock.h>
#include <libusb.h>

#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

class ListUpdate : public ListTest {
 protected:
    void flag(uint32_t list) { listOf(list).changePending.store(true); }
    std::vector<std::string> updateLines(uint32_t list) {
        return debugLinesOf([list] { update(list); });
    }
};

TEST_F(ListUpdate, WithoutAFlagDoesNothing) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    unplugAndWait("a", list);
    listOf(list).changePending.store(false);
    bus.clearCalls();
    update(list);
    EXPECT_EQ(0U, callsOf("libusb_get_device_list"));
    EXPECT_EQ(1U, record(list, 0).isPresent);
}

TEST_F(ListUpdate, WithoutAFlagLooksForNoNewDevices) {
    startSession({deviceJson("a"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    plugAndWait("b", list);
    listOf(list).changePending.store(false);
    update(list);
    EXPECT_THAT(serialsOf(list), ElementsAre("a"));
}

TEST_F(ListUpdate, TakesTheFlagDown) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    flag(list);
    update(list);
    EXPECT_FALSE(isFlagged(list));
    bus.clearCalls();
    update(list);
    EXPECT_EQ(0U, callsOf("libusb_get_device_list"));
}

TEST_F(ListUpdate, AnEventDuringTheUpdateIsKeptForTheNext) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    flag(list);
    bus.onCall("libusb_get_device_list", [&] { flag(list); });
    update(list);
    EXPECT_TRUE(isFlagged(list));
}

TEST_F(ListUpdate, AnUnchangedBusChangesNothing) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    const auto records = recordsOf(list);
    const auto devices = devicesOf(list);
    flag(list);
    update(list);
    EXPECT_EQ(records, recordsOf(list));
    EXPECT_EQ(devices, devicesOf(list));
    EXPECT_EQ(1, getRefCount(devices[0]));
    EXPECT_EQ(1, getRefCount(devices[1]));
}

TEST_F(ListUpdate, KeepsAnUnpluggedDeviceInItsPlaceAsAbsent) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    const auto records = recordsOf(list);
    libusb_device* device = recordNamed(list, "a").pDevice;
    unplugAndUpdate("a", list);
    EXPECT_EQ(records, recordsOf(list));
    EXPECT_EQ(0U, recordNamed(list, "a").isPresent);
    EXPECT_EQ(1U, recordNamed(list, "b").isPresent);
    EXPECT_EQ(-1, getRefCount(device));
    EXPECT_EQ(1, getRefCount(recordNamed(list, "b").pDevice));
    EXPECT_EQ(1U, recordNamed(list, "a").reportedPresent);
}

TEST_F(ListUpdate, ADeviceThatComesBackTakesItsPlaceAgain) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    const auto records = recordsOf(list);
    libusb_device* before = recordNamed(list, "a").pDevice;
    unplugAndUpdate("a", list);
    plugAndUpdate("a", list);
    EXPECT_EQ(records, recordsOf(list));
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = recordNamed(list, "a");
    EXPECT_EQ(1U, entry.isPresent);
    EXPECT_NE(before, entry.pDevice);
    EXPECT_THAT(libusbsDevices(), Contains(entry.pDevice));
    EXPECT_EQ(1, getRefCount(entry.pDevice));
}

TEST_F(ListUpdate, ADeviceReplugedBetweenUpdatesChangesItsDeviceAtOnce) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    libusb_device* before = record(list, 0).pDevice;
    const std::string beforeText = pointerText(before);
    bus.unplug("a");
    plugAndWait("a", list);
    const std::vector<std::string> lines = updateLines(list);
    libusb_device* after = record(list, 0).pDevice;
    EXPECT_NE(before, after);
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_EQ(-1, getRefCount(before));
    EXPECT_EQ(1, getRefCount(after));
    EXPECT_EQ("UDL-05 DETemp is already in list : 'a'", lines[2]);
    EXPECT_EQ("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + beforeText, lines[3]);
    EXPECT_EQ("[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + pointerText(after), lines[4]);
    EXPECT_EQ(5U, lines.size());
}

TEST_F(ListUpdate, AReplugedDeviceIsNoLongerOpen) {
    startSession({deviceJson("a")});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = openFirst();
    const uint32_t list = entry.pDeviceList->handle;
    bus.unplug("a");
    plugAndUpdate("a", list);
    EXPECT_EQ(0U, entry.isOpen);
}

TEST_F(ListUpdate, AReplugClosesThenDropsTheOldReferenceThenTakesTheNewDevice) {
    startSession({deviceJson("a")});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = openFirst();
    libusb_device* before = entry.pDevice;
    std::vector<std::pair<uint32_t, libusb_device*>> states;
    bus.unplug("a");
    bus.onCall("libusb_unref_device", [&] { states.emplace_back(entry.isOpen, entry.pDevice); });
    plugAndUpdate("a", entry.pDeviceList->handle);
    bus.onCall("libusb_unref_device", {});
    ASSERT_FALSE(states.empty());
    EXPECT_EQ(std::make_pair(0U, before), states.front()) << "at the first, the counted reference";
}

TEST_F(ListUpdate, ADeviceThatStayedIsStillOpen) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = recordNamed(list, "a");
    ASSERT_EQ(0, LibUSB_OpenDevice(&entry));
    unplugAndUpdate("b", list);
    EXPECT_EQ(1U, entry.isOpen);
    EXPECT_EQ(0, LibUSB_CloseDevice(&entry));
}

TEST_F(ListUpdate, EveryPartOfTheIdentityCounts) {
    for (const char* change :
         {R"({"serial":"other"})", R"({"product":"Other"})", R"({"manufacturer":"Other"})",
          R"({"productId":4098})", R"({"bcdDevice":257})", R"({"serial":"A"})"}) {
        startSession({deviceJson("a")});
        const uint32_t list = createList({kVendor});
        replugChanged("a", change, list);
        ASSERT_EQ(2U, recordsOf(list).size()) << change;
        EXPECT_EQ(0U, record(list, 0).isPresent) << change;
        EXPECT_STREQ("a", record(list, 0).sSerialNumber);
        EXPECT_EQ(1U, record(list, 1).isPresent) << change;
        LibUSB_ReleaseDeviceList(list);
        endSession();
    }
}

TEST_F(ListUpdate, OtherPropertiesDoNotCount) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    replugChanged("a", R"({"deviceClass":255,"bus":2})", list);
    EXPECT_EQ(1U, recordsOf(list).size());
    EXPECT_EQ(1U, record(list, 0).isPresent);
}

TEST_F(ListUpdate, ADeviceWithAnotherSerialNumberIsAppended) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    replugChanged("a", R"({"serial":"new"})", list);
    EXPECT_EQ("new", serialsOf(list)[2]);
    EXPECT_EQ(0U, recordNamed(list, "a").isPresent);
    replugChanged("a", R"({"serial":"a"})", list);
    EXPECT_EQ(1U, recordNamed(list, "a").isPresent);
    EXPECT_EQ(0U, recordNamed(list, "new").isPresent);
    EXPECT_EQ(3U, recordsOf(list).size());
}

TEST_F(ListUpdate, ANewDeviceIsAppendedWithoutAReference) {
    startSession({deviceJson("a"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    plugAndUpdate("b", list);
    EXPECT_THAT(serialsOf(list), ElementsAre("a", "b"));
    const tagUSB_DEVICE_ACCESS_ENTRY& added = record(list, 1);
    EXPECT_EQ(-1, getRefCount(added.pDevice));
    EXPECT_EQ(1U, added.isPresent);
    EXPECT_EQ(0, added.busNumber);
}

TEST_F(ListUpdate, AnAddedDeviceThatGoesIsLoggedOnly) {
    startSession({deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    plugAndUpdate("b", list);
    const std::string line =
        "[unref_unplugged_devices] no ref found for device: " + pointerText(record(list, 0).pDevice);
    unplugAndWait("b", list);
    EXPECT_THAT(updateLines(list), ElementsAre(line));
}

TEST_F(ListUpdate, AnAbsentDeviceIsDroppedOnce) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    const std::string pointer = pointerText(record(list, 0).pDevice);
    unplugAndWait("a", list);
    EXPECT_THAT(updateLines(list),
                Contains("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + pointer));
    flag(list);
    EXPECT_THAT(updateLines(list),
                ElementsAre("[unref_unplugged_devices] no ref found for device: " + pointer));
}

TEST_F(ListUpdate, DevicesOfOtherVendorsStayOut) {
    startSession({deviceJson("a"), deviceJson("x", R"({"vendorId":"0x1234","plugged":false})")});
    const uint32_t list = createList({kVendor});
    bus.plug("x");
    flag(list);
    update(list);
    EXPECT_THAT(serialsOf(list), ElementsAre("a"));
}

TEST_F(ListUpdate, IdenticalDevicesAreMatchedInOrder) {
    startSession({deviceJson("a", R"({"serial":"same"})"), deviceJson("b", R"({"serial":"same","bus":2})")});
    const uint32_t list = createList({kVendor});
    libusb_device* first = record(list, 0).pDevice;
    libusb_device* second = record(list, 1).pDevice;
    unplugAndUpdate(record(list, 0).busNumber == 1 ? "a" : "b", list);
    EXPECT_EQ(second, record(list, 0).pDevice);
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_EQ(0U, record(list, 1).isPresent);
    EXPECT_EQ(-1, getRefCount(first));
    EXPECT_EQ(1, getRefCount(second));  // briefly two, until the absent record's one was dropped
}

TEST_F(ListUpdate, ADeviceThatGetsThePlaceOfItsTwinStaysOpenInItsOwn) {
    startSession({deviceJson("a", R"({"serial":"same"})"), deviceJson("b", R"({"serial":"same","bus":2})")});
    const uint32_t list = createList({kVendor});
    tagUSB_DEVICE_ACCESS_ENTRY& first = record(list, 0);
    tagUSB_DEVICE_ACCESS_ENTRY& second = record(list, 1);
    ASSERT_EQ(0, LibUSB_OpenDevice(&first));
    ASSERT_EQ(0, LibUSB_OpenDevice(&second));
    unplugAndUpdate(first.busNumber == 1 ? "a" : "b", list);
    EXPECT_EQ(1U, first.isPresent);
    EXPECT_EQ(0U, second.isPresent);
    EXPECT_EQ(0U, first.isOpen);
    EXPECT_EQ(-108, LibUSB_OpenDevice(&first));
    EXPECT_EQ(0, LibUSB_CloseDevice(&second));
    EXPECT_EQ(0, LibUSB_OpenDevice(&first));
}

TEST_F(ListUpdate, AFailedEnumerationMarksAllAbsent) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    const auto devices = devicesOf(list);
    flag(list);
    bus.failCall("libusb_get_device_list", 1, LIBUSB_ERROR_IO);
    update(list);
    EXPECT_EQ(0U, record(list, 0).isPresent);
    EXPECT_EQ(0U, record(list, 1).isPresent);
    EXPECT_EQ(-1, getRefCount(devices[0]));
    EXPECT_EQ(-1, getRefCount(devices[1]));
}

TEST_F(ListUpdate, ADeviceThatCannotBeOpenedNowIsAnotherDevice) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    flag(list);
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    update(list);
    EXPECT_THAT(serialsOf(list), ElementsAre("a", "?"));
    EXPECT_EQ(0U, record(list, 0).isPresent);
    flag(list);
    update(list);
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_EQ(0U, record(list, 1).isPresent);
}

TEST_F(ListUpdate, AnEmptyListTakesWhatComesWithoutReferences) {
    startSession({deviceJson("a", R"({"plugged":false})"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    bus.plug("a");
    plugAndUpdate("b", list);
    EXPECT_EQ(libusbsDevices(), devicesOf(list));
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(ListUpdate, AnEmptyListStaysEmptyWhenNothingCame) {
    startSession({});
    const uint32_t list = createList({kVendor});
    flag(list);
    update(list);
    EXPECT_TRUE(recordsOf(list).empty());
}

TEST_F(ListUpdate, AListOfMoreThanSixteenIdsIsUpdated) {
    startSession({deviceJson("a")});
    const uint32_t list = createList(std::vector<int32_t>(20, kVendor));
    unplugAndUpdate("a", list);
    EXPECT_EQ(0U, record(list, 0).isPresent);
    plugAndUpdate("a", list);
    EXPECT_EQ(1U, record(list, 0).isPresent);
}

TEST_F(ListUpdate, IgnoresItsSecondArgument) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    unplugAndWait("a", list);
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0xFFFFFFFF));
    EXPECT_EQ(0U, record(list, 0).isPresent);
}

TEST_F(ListUpdate, AListOfAnEndedSessionStaysAsItIs) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    endSession();
    flag(list);
    bus.clearCalls();
    update(list);
    EXPECT_EQ(1U, record(list, 0).isPresent);
    EXPECT_TRUE(bus.calls().empty());
}

}  // namespace
