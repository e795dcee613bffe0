// What is freed with a record, and when.
#include <gtest/gtest.h>

#include "FakeHid.h"
#include "FakeMemory.h"
#include "HidPlatformTest.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "hid/HIDAccess.h"

namespace {

using RecordDeletion = IoTest;
using HidDeletion = HidPlatformTest;

}  // namespace

TEST_F(HidDeletion, AnOpenDeviceIsDeletedByItsClose) {
    startSession({hidJson("tool")});
    HIDAccess* access = newHIDAccess(kVendor, 0x1001, "tool", 64, 0);
    const DeletionCount devices(DeletionCount::kNextNoThrow);
    EXPECT_EQ(0, access->Open());
    EXPECT_EQ(0, DeletionCount::count());
    EXPECT_EQ(0, access->Close());
    EXPECT_EQ(1, DeletionCount::count());
    deleteHIDAccess(access);
}

TEST_F(RecordDeletion, AClosedRecordIsDeletedWithItsList) {
    openTool();
    const uint32_t released = list();
    ASSERT_EQ(0, LibUSB_CloseDevice(&tool()));
    const DeletionCount records(sizeof(DeviceRecord));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(released));
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(RecordDeletion, ARecordTakesItsHidAccessWithIt) {
    FakeHid hid;
    hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "tool"}};
    startSession({deviceJson("tool")});
    const uint32_t released = createList({kVendor});
    ASSERT_EQ(1, record(released, 0).isHid);
    const DeletionCount objects(sizeof(HIDAccessRecord));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(released));
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(RecordDeletion, CloseDeletesTheTransferRecords) {
    openTool();
    const DeletionCount records(sizeof(tagUSB_CALLBACK_INFO));
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    const int nodes = sizeof(tagUSB_CALLBACK_INFO) == kMapNodeBytes ? 32 : 0;
    EXPECT_EQ(32 + nodes, DeletionCount::count());
}

TEST_F(RecordDeletion, AnUpdateDeletesTheListThatItLooksWith) {
    openTool();
    tool().pDeviceList->changePending = true;
    const DeletionCount lists(sizeof(tagUSB_DEVICE_LIST));
    EXPECT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(RecordDeletion, RecordsKeptAsidePointAtNoOther) {
    openTool(R"({"interfaces":[{"number":0,"class":255},
        {"number":1,"class":255,"subClass":255,"endpoints":[{"address":"0x02"},{"address":"0x82"}]}]})");
    auto& parent = tool();
    auto& child = record(list(), 1);
    ASSERT_EQ(&child, parent.pCompositeChild);
    ASSERT_EQ(0, LibUSB_OpenDevice(&child));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    EXPECT_EQ(nullptr, parent.pCompositeChild);
    EXPECT_EQ(nullptr, child.pCompositeParent);
    EXPECT_EQ(-109, LibUSB_CloseDevice(&child));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&parent));
}

TEST_F(RecordDeletion, ARecordKeptAsideStaysAsLongAsItHasTransferRecords) {
    tagUSB_DEVICE_LIST unlinked{};
    tagUSB_DEVICE_ACCESS_ENTRY* entry = newDeviceRecord(unlinked);
    appendRecords(unlinked, entry);
    ASSERT_TRUE(createTransferRecords(*entry));
    deleteDeviceRecord(*entry);
    const DeletionCount records(sizeof(DeviceRecord));
    endRetiredRecords();
    ASSERT_EQ(0, DeletionCount::count());
    endOpenState(*entry);
    endRetiredRecords();
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(RecordDeletion, ARecordKeptAsideIsDeletedWhenItsCallerClosesIt) {
    openTool();
    auto& entry = tool();
    const DeletionCount records(sizeof(DeviceRecord));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    EXPECT_EQ(0, DeletionCount::count());
    EXPECT_EQ(-109, LibUSB_CloseDevice(&entry));
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(RecordDeletion, RecordsKeptAsideMayBeClosedInAnyOrder) {
    startSession({deviceJson("a"), deviceJson("b"), deviceJson("c")});
    const uint32_t several = createList({kVendor});
    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> kept;
    for (const uint32_t index : {0U, 1U, 2U}) {
        kept.push_back(&record(several, index));
        ASSERT_EQ(0, LibUSB_OpenDevice(kept.back()));
    }
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(several));
    for (const size_t place : {1U, 0U, 2U}) {
        const DeletionCount records(sizeof(DeviceRecord));
        EXPECT_EQ(-109, LibUSB_CloseDevice(kept[place]));
        EXPECT_EQ(1, DeletionCount::count()) << place;
    }
}

TEST_F(RecordDeletion, AListedRecordIsNoneOfThoseKeptAside) {
    openTool();
    auto& kept = tool();
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    tagUSB_DEVICE_ACCESS_ENTRY& listed = record(createList({kVendor}), 0);
    const DeletionCount records(sizeof(DeviceRecord));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&listed)) << "it was never opened";
    EXPECT_EQ(0, DeletionCount::count());
    EXPECT_EQ(-109, LibUSB_CloseDevice(&kept));
    EXPECT_EQ(1, DeletionCount::count());
}
