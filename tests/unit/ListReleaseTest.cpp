#include <gmock/gmock.h>
#include <libusb.h>

#include "ListTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::ElementsAre;

class ListRelease : public ListTest {
 protected:
    static std::vector<std::string> release(uint32_t list) {
        return debugLinesOf([list] { EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list)); });
    }
};

TEST_F(ListRelease, TellsAnEmptyChainFromAnUnknownHandle) {
    startSession({});
    {
        const NoLists none;
        EXPECT_EQ(-104, LibUSB_ReleaseDeviceList(0));
        EXPECT_EQ(-104, LibUSB_UpdateDeviceList(0, 0));
    }
    const uint32_t list = createList({kVendor});
    EXPECT_EQ(-103, LibUSB_ReleaseDeviceList(list + 1));
    EXPECT_EQ(-103, LibUSB_UpdateDeviceList(list + 1, 0));
}

TEST_F(ListRelease, LeavesTheListEmptyInTheChainWithHandleAndIds) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor, 0x1234});
    release(list);
    EXPECT_TRUE(recordsOf(list).empty());
    EXPECT_EQ(2, listOf(list).vidCount);
    EXPECT_EQ(kVendor, listOf(list).vidList[0]);
    EXPECT_EQ(0x1234, listOf(list).vidList[1]);
    EXPECT_EQ(context, listOf(list).pContext);
}

TEST_F(ListRelease, DropsOneReferenceForEachRecord) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t list = createList({kVendor});
    const std::string first = pointerText(record(list, 0).pDevice);
    const std::string second = pointerText(record(list, 1).pDevice);
    EXPECT_THAT(release(list),
                ElementsAre("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + first,
                            "[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + second));
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(ListRelease, TwiceAnswersZeroBothTimes) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list));
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list));
}

TEST_F(ListRelease, ClosesWhatIsOpenAndSaysSo) {
    startSession({deviceJson("a")});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = openFirst();
    const uint32_t list = entry.pDeviceList->handle;
    const std::string pointer = pointerText(entry.pDevice);
    EXPECT_THAT(release(list),
                ElementsAre("[tlvn_libusb_close] a: 1.256 interface: 0 dev: " + pointer,
                            "[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + pointer));
    EXPECT_EQ(callsOf("libusb_open"), callsOf("libusb_close"));
    EXPECT_EQ(callsOf("libusb_alloc_transfer"), callsOf("libusb_free_transfer"));
}

TEST_F(ListRelease, ARecordWithoutReferencesLogsAndConsumesNothing) {
    startSession({deviceJson("a")});
    const uint32_t list = createSingleCallList(kVendor);
    const std::string pointer = pointerText(record(list, 0).pDevice);
    EXPECT_THAT(release(list), ElementsAre("[tlvn_libusb_unref_device] device " + pointer + " not found: a"));
}

TEST_F(ListRelease, ASingleCallListConsumesTheReferenceOfAnotherList) {
    startSession({deviceJson("a")});
    const uint32_t watched = createList({kVendor, 0x1234});
    libusb_device* device = record(watched, 0).pDevice;
    LibUSB_ReleaseDeviceList(createSingleCallList(kVendor));
    EXPECT_EQ(-1, getRefCount(device));
    EXPECT_EQ(0, LibUSB_OpenDevice(&record(watched, 0)));  // its own reference keeps the device alive
    EXPECT_EQ(0, LibUSB_CloseDevice(&record(watched, 0)));
}

TEST_F(ListRelease, AReleasedListIsFilledAgainByAnUpdate) {
    startSession({deviceJson("a")});
    const uint32_t list = createList({kVendor});
    LibUSB_ReleaseDeviceList(list);
    bus.unplug("a");
    plugAndUpdate("a", list);
    EXPECT_THAT(serialsOf(list), ElementsAre("a"));
    EXPECT_EQ(-1, getRefCount(record(list, 0).pDevice));
    EXPECT_EQ(1U, record(list, 0).isPresent);
}

/// A temporary list as an update creates it.
class InternalList : public ListTest {
 protected:
    void TearDown() override {
        if (list_ != nullptr) {
            EXPECT_EQ(0, ReleaseInternalDeviceList2(list_));
            delete list_;
        }
        ListTest::TearDown();
    }
    void create(const std::vector<int32_t>& ids) {
        list_ = CreateInternalDeviceList2(context, static_cast<int32_t>(ids.size()), ids.data(), &status_);
        ASSERT_NE(nullptr, list_);
    }

    tagUSB_DEVICE_LIST* list_ = nullptr;
    int32_t status_ = 0;
};

TEST_F(InternalList, IsLinkedNowhereAndTakesNoHandle) {
    startSession({deviceJson("a")});
    const NoLists none;
    const uint32_t next = g_NextDeviceListHandle;
    create({kVendor, -1, 0x1234});
    EXPECT_EQ(4242, status_);
    EXPECT_EQ(4242U, list_->handle);
    EXPECT_EQ(next, g_NextDeviceListHandle);
    EXPECT_EQ(nullptr, g_pDeviceList);
    EXPECT_EQ(nullptr, list_->pPrevList);
    EXPECT_EQ(nullptr, list_->pNextList);
    EXPECT_FALSE(list_->changePending.load());
    EXPECT_EQ(context, list_->pContext);
    EXPECT_EQ(-1, list_->vidList[1]);
    EXPECT_EQ(0x1234, list_->vidList[2]);
    EXPECT_EQ(-1, list_->vidList[15]);
}

TEST_F(InternalList, TakesNoReferenceAndWatchesNothing) {
    startSession({deviceJson("a")});
    create({kVendor});
    ASSERT_NE(nullptr, list_->pFirst);
    EXPECT_EQ(-1, getRefCount(list_->pFirst->pDevice));
    EXPECT_EQ(0, list_->pFirst->busNumber);
    EXPECT_EQ(0U, callsOf("libusb_hotplug_register_callback"));
    EXPECT_EQ(0U, callsOf("libusb_get_bus_number"));
}

TEST_F(InternalList, GivesAnEmptyArrayBackToo) {
    startSession({});
    create({kVendor});
    EXPECT_EQ(nullptr, list_->pFirst);
    EXPECT_EQ(1U, callsOf("libusb_free_device_list"));
}

TEST_F(InternalList, FreesNothingWhenTheEnumerationFails) {
    startSession({deviceJson("a")});
    bus.failCall("libusb_get_device_list", 1, LIBUSB_ERROR_IO);
    create({kVendor});
    EXPECT_EQ(4242, status_);
    EXPECT_EQ(nullptr, list_->pFirst);
    EXPECT_EQ(0U, callsOf("libusb_free_device_list"));
}

TEST_F(InternalList, IsReleasedPastTheCountedReferences) {
    startSession({deviceJson("a"), deviceJson("b")});
    const uint32_t watched = createList({kVendor});
    create({kVendor});
    bus.clearCalls();
    EXPECT_EQ(0, ReleaseInternalDeviceList2(list_));
    EXPECT_EQ(nullptr, list_->pFirst);
    EXPECT_EQ(2U, callsOf("libusb_unref_device"));
    EXPECT_EQ(1, getRefCount(record(watched, 0).pDevice));
}

TEST_F(InternalList, NoListIsNotReleased) {
    EXPECT_EQ(-103, ReleaseInternalDeviceList2(nullptr));
}

}  // namespace
