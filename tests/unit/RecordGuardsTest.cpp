#include <gmock/gmock.h>
#include <libusb.h>

#include <atomic>
#include <thread>

#include "DescriptorBytes.h"
#include "HotplugUsb/HotplugUsb.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::Not;

/// No call of the library may use what libusb has freed: the drop-in reports every such call at the end of
/// the test.
class RecordGuards : public ListTest {
 protected:
    static void expectGone(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        EXPECT_EQ(-107, LibUSB_OpenDevice(&entry));
        EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, entry.lastResult);
        EXPECT_EQ(0U, entry.isOpen);
    }
    /// Unplugs a device and waits until libusb itself has released it: its event has been handled then.
    void unplugAndForget(const std::string& id, uint32_t watched) {
        unplugAndWait(id, watched);
        ASSERT_THAT(libusbsDevices(), Not(Contains(record(watched, 0).pDevice)));
    }
};

TEST_F(RecordGuards, ASingleCallListHoldsItsDevices) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    const uint32_t watched = createList({kVendor, 0x1234});
    LibUSB_ReleaseDeviceList(watched);
    registerForHotplug(context, kVendor);
    unplugAndWait("a", list);  // the first list in the chain
    expectGone(record(list, 0));
}

TEST_F(RecordGuards, ARecordThatAnUpdateAddedHoldsItsDevice) {
    startSession({deviceJson("a", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    plugAndUpdate("a", list);
    unplugAndForget("a", list);
    expectGone(record(list, 0));
}

TEST_F(RecordGuards, AnAbsentRecordHoldsItsDevice) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    unplugAndUpdate("a", list);
    record(list, 0).isPresent = 1;
    expectGone(record(list, 0));
}

TEST_F(RecordGuards, AChildHoldsItsDevice) {
    startSession(
        {deviceJson("a", rawConfiguration(configurationBytes({interfaceBytes(0, 3), interfaceBytes(1),
                                                              endpointBytes(0x85), endpointBytes(0x05)})))});
    const uint32_t list = createList({kVendor});
    tagUSB_DEVICE_ACCESS_ENTRY& child = record(list, 1);
    unplugAndUpdate("a", list);
    child.isPresent = 1;
    expectGone(child);
}

TEST_F(RecordGuards, ARepluggedRecordHoldsItsNewDevice) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    bus.unplug("a");
    plugAndUpdate("a", list);
    listOf(list).changePending.store(false);
    unplugAndForget("a", list);
    expectGone(record(list, 0));
}

TEST_F(RecordGuards, AReferenceConsumedElsewhereLeavesTheDeviceHeld) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    LibUSB_ReleaseDeviceList(createSingleCallList(0xFFFFFFFF));
    ASSERT_EQ(-1, getRefCount(record(list, 0).pDevice));
    unplugAndForget("a", list);
    expectGone(record(list, 0));
}

TEST_F(RecordGuards, ANewDeviceIsNeverTakenForTheOldOne) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    const uint32_t watched = createList({kVendor, 0x1234});
    std::vector<libusb_device*> seen{record(list, 0).pDevice};
    for (int round = 0; round < 5; ++round) {
        bus.unplug("a");
        bus.plug("a");
        EXPECT_THAT(seen, Not(Contains(libusbsDevices().at(0))));
        listOf(list).changePending = true;
        update(list);
        seen.assign({record(list, 0).pDevice, record(watched, 0).pDevice});
    }
}

TEST_F(RecordGuards, TheSessionsEndLetsGoOfAllDevices) {
    startSession({deviceJson("a"), deviceJson("b", R"({"plugged":false})")});
    const uint32_t list = createList({kVendor});
    plugAndUpdate("b", list);
    const uint32_t single = createSingleCallList(0xFFFFFFFF);
    LibUSB_ReleaseDeviceList(list);
    endSession();  // the drop-in reports every reference that is left
    EXPECT_THAT(devicesOf(single), Each(nullptr));
    EXPECT_EQ(nullptr, listOf(single).pContext);
    EXPECT_EQ(nullptr, listOf(list).pContext);
}

TEST_F(RecordGuards, ARecordOfAnEndedSessionNeverReachesLibusb) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    endSession();
    bus.clearCalls();
    EXPECT_EQ(-107, LibUSB_OpenDevice(&record(list, 0)));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list));
    EXPECT_TRUE(bus.calls().empty());
}

TEST_F(RecordGuards, AListOfAnEndedSessionIsNotReused) {
    startSession({deviceJson("a")});
    libusb_context* before = context;
    const uint32_t watched = createList({kVendor, 0x1234});
    LibUSB_ReleaseDeviceList(watched);
    const uint32_t single = createSingleCallList(kVendor);
    endSession();
    startSession({deviceJson("a")});
    ASSERT_EQ(before, context);  // libusb reuses the address for the new context
    EXPECT_EQ(single + 1, createSingleCallList(kVendor));
    EXPECT_EQ(single + 1, createList({kVendor}));
    EXPECT_EQ(&listOf(single + 1), find_device_list(context, kVendor));
}

TEST_F(RecordGuards, WithoutASessionAListIsEmptyAndLibusbIsNotCalled) {
    startSession({deviceJson("a")});
    endSession();
    bus.clearCalls();
    for (libusb_context* dead : {context, static_cast<libusb_context*>(nullptr)}) {
        const int32_t id = kVendor;
        const uint32_t list = LibUSB_CreateDeviceList2(dead, 1, &id);
        EXPECT_TRUE(recordsOf(list).empty());
        const uint32_t single = LibUSB_CreateDeviceList(dead, kVendor);
        EXPECT_EQ(list + 1, single);
        EXPECT_TRUE(recordsOf(single).empty());
        EXPECT_EQ(nullptr, find_device_list(dead, kVendor));
        listOf(list).changePending = true;
        EXPECT_EQ(0, LibUSB_UpdateDeviceList(list, 0));
    }
    EXPECT_TRUE(bus.calls().empty());
}

TEST_F(RecordGuards, AListMadeWithoutASessionStaysDeadInTheNext) {
    const int32_t id = kVendor;
    const uint32_t dead = LibUSB_CreateDeviceList2(nullptr, 1, &id);
    startSession({deviceJson("a")});
    EXPECT_NE(dead, createList({kVendor}));
    EXPECT_NE(&listOf(dead), find_device_list(context, kVendor));
}

TEST_F(RecordGuards, ANewRecordIsZeroedAndInNoChain) {
    tagUSB_DEVICE_LIST list{};
    tagUSB_DEVICE_ACCESS_ENTRY* entry = newDeviceRecord(list);
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(&list, entry->pDeviceList);
    EXPECT_EQ(nullptr, list.pFirst);
    EXPECT_EQ(nullptr, entry->pDevice);
    EXPECT_EQ(nullptr, entry->hDevice);
    EXPECT_EQ(0U, entry->kernelDriverDetached);
    EXPECT_EQ(0, entry->busNumber);
    EXPECT_STREQ("", entry->sSerialNumber);
    EXPECT_THAT(entry->configDescriptor, Each(0));
    EXPECT_THAT(endpointsOf(entry->endpoints), Each(kUnusedEndpoint));
    appendRecords(list, entry);
    deleteDeviceRecord(*entry);
    EXPECT_EQ(nullptr, list.pFirst);
}

TEST_F(RecordGuards, TextsAreCutToTheirField) {
    char field[kStringBytes];
    formatText(field, "%s", std::string(200, 't').c_str());
    EXPECT_EQ(std::string(127, 't'), field);
}

TEST_F(RecordGuards, TheEventThreadWalksTheChainWhileListsAreLinked) {
    startSession({deviceJson("a")});
    createList({kVendor});
    std::atomic<bool> done{false};
    std::thread plugger([&] {
        while (!done.load()) {
            bus.unplug("a");
            bus.plug("a");
        }
    });
    for (int32_t id = 1; id <= 50; ++id) {
        createList({id, kVendor});
    }
    done.store(true);
    plugger.join();
    EXPECT_TRUE(eventually([&] { return find_device_list(context, 50) != nullptr; }));
}

}  // namespace
