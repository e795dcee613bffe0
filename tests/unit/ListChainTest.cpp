#include <gmock/gmock.h>

#include <memory>
#include <vector>

#include "ListTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;

/// A chain of the test's own that replaces the library's.
class ListChain : public ::testing::Test {
 protected:
    tagUSB_DEVICE_LIST* addList(uint32_t handle, const std::vector<int32_t>& ids, int32_t context = 0) {
        lists_.emplace_back(newDeviceList(nullptr, static_cast<int32_t>(ids.size()), ids.data()));
        lists_.back()->pContext = contextOf(context);
        lists_.back()->handle = handle;
        appendDeviceList(*lists_.back());
        return lists_.back().get();
    }
    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> addRecords(tagUSB_DEVICE_LIST& list, std::size_t count) {
        std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> added;
        for (std::size_t i = 0; i < count; ++i) {
            records_.push_back(std::make_unique<DeviceRecord>());
            added.push_back(records_.back().get());
            appendRecords(list, added.back());
        }
        return added;
    }
    /// Distinct addresses as contexts; the chain only compares them.
    libusb_context* contextOf(int32_t number) {
        return reinterpret_cast<libusb_context*>(contexts_ + number);
    }
    static bool contains(const tagUSB_DEVICE_LIST* list, const std::vector<int32_t>& ids) {
        return deviceListContainsVIDList(list, static_cast<int32_t>(ids.size()), ids.data());
    }
    static std::vector<int32_t> idsOf(const tagUSB_DEVICE_LIST* list) {
        return {std::begin(list->vidList), std::end(list->vidList)};
    }

 private:
    NoLists librarysLists_;
    std::vector<std::unique_ptr<tagUSB_DEVICE_LIST>> lists_;
    std::vector<std::unique_ptr<DeviceRecord>> records_;
    char contexts_[4]{};
};

TEST_F(ListChain, LinksListsInOrderOfCreation) {
    tagUSB_DEVICE_LIST* first = addList(5, {1});
    EXPECT_EQ(first, g_pDeviceList);
    EXPECT_EQ(nullptr, first->pPrevList);
    EXPECT_EQ(nullptr, first->pNextList);
    tagUSB_DEVICE_LIST* second = addList(6, {2});
    tagUSB_DEVICE_LIST* third = addList(7, {3});
    EXPECT_EQ(second, first->pNextList);
    EXPECT_EQ(third, second->pNextList);
    EXPECT_EQ(first, second->pPrevList);
    EXPECT_EQ(second, third->pPrevList);
    EXPECT_EQ(nullptr, third->pNextList);
}

TEST_F(ListChain, ANewListHoldsItsIdsThenMinusOnes) {
    const tagUSB_DEVICE_LIST* list = addList(0, {0x6A5C, 0x1234});
    EXPECT_EQ(2, list->vidCount);
    EXPECT_THAT(std::vector<int32_t>(list->vidList, list->vidList + 2), ElementsAre(0x6A5C, 0x1234));
    EXPECT_THAT(std::vector<int32_t>(list->vidList + 2, list->vidList + 16), Each(-1));
    EXPECT_FALSE(list->changePending.load());
    EXPECT_EQ(nullptr, list->pFirst);
}

TEST_F(ListChain, ANewListTakesTheContextOfTheRunningSessionOnly) {
    libusb_context* before = std::exchange(g_liveContext, contextOf(1));
    for (const int32_t number : {1, 2}) {
        const std::unique_ptr<tagUSB_DEVICE_LIST> list(newDeviceList(contextOf(number), 0, nullptr));
        EXPECT_EQ(number == 1 ? contextOf(1) : nullptr, list->pContext);
    }
    g_liveContext = before;
}

TEST_F(ListChain, AListOfNoIdsHasSixteenMinusOnes) {
    EXPECT_THAT(idsOf(addList(0, {})), Each(-1));
    EXPECT_EQ(16U, idsOf(addList(1, {})).size());
}

TEST_F(ListChain, IdsBeyondTheSixteenthAreCountedAndIgnored) {
    std::vector<int32_t> ids(20);
    for (int32_t i = 0; i < 20; ++i) {
        ids[static_cast<std::size_t>(i)] = 100 + i;
    }
    const tagUSB_DEVICE_LIST* list = addList(0, ids);
    EXPECT_EQ(20, list->vidCount);
    EXPECT_EQ(115, list->vidList[15]);
    EXPECT_FALSE(contains(list, ids));
}

TEST_F(ListChain, FindsAListByItsHandle) {
    addList(5, {1});
    tagUSB_DEVICE_LIST* second = addList(6, {1});
    int32_t status = -1;
    EXPECT_EQ(second, findDeviceList(6, status));
    EXPECT_EQ(0, status);
}

TEST_F(ListChain, TellsAnEmptyChainFromAnUnknownHandle) {
    int32_t status = 0;
    EXPECT_EQ(nullptr, findDeviceList(5, status));
    EXPECT_EQ(-104, status);
    addList(5, {1});
    EXPECT_EQ(nullptr, findDeviceList(6, status));
    EXPECT_EQ(-103, status);
}

TEST_F(ListChain, AppendsRecordsAndBecomesTheirOwner) {
    tagUSB_DEVICE_LIST* list = addList(5, {1});
    const auto records = addRecords(*list, 3);
    EXPECT_EQ(records[0], list->pFirst);
    EXPECT_EQ(nullptr, records[0]->pPrev);
    EXPECT_EQ(records[1], records[0]->pNext);
    EXPECT_EQ(records[0], records[1]->pPrev);
    EXPECT_EQ(records[1], records[2]->pPrev);
    EXPECT_EQ(nullptr, records[2]->pNext);
    for (const tagUSB_DEVICE_ACCESS_ENTRY* each : records) {
        EXPECT_EQ(list, each->pDeviceList);
    }
}

TEST_F(ListChain, MovesAWholeChainOfRecords) {
    tagUSB_DEVICE_LIST* from = addList(5, {1});
    tagUSB_DEVICE_LIST* to = addList(6, {1});
    const auto moved = addRecords(*from, 2);
    const auto own = addRecords(*to, 1);
    appendRecords(*to, from->pFirst);
    EXPECT_EQ(moved[0], own[0]->pNext);
    EXPECT_EQ(own[0], moved[0]->pPrev);
    EXPECT_EQ(to, moved[0]->pDeviceList);
    EXPECT_EQ(to, moved[1]->pDeviceList);
    appendRecords(*to, nullptr);
    EXPECT_EQ(nullptr, moved[1]->pNext);
}

TEST_F(ListChain, UnlinksRecordsAnywhereInTheChain) {
    tagUSB_DEVICE_LIST* list = addList(5, {1});
    const auto records = addRecords(*list, 3);
    unlinkRecord(*records[1]);
    EXPECT_EQ(records[2], records[0]->pNext);
    EXPECT_EQ(records[0], records[2]->pPrev);
    EXPECT_EQ(nullptr, records[1]->pNext);
    EXPECT_EQ(nullptr, records[1]->pPrev);
    unlinkRecord(*records[0]);
    EXPECT_EQ(records[2], list->pFirst);
    EXPECT_EQ(nullptr, records[2]->pPrev);
    unlinkRecord(*records[2]);
    EXPECT_EQ(nullptr, list->pFirst);
}

TEST_F(ListChain, EnumeratesFromTheFirstRecordToNull) {
    const auto records = addRecords(*addList(5, {1}), 2);
    EXPECT_EQ(records[0], LibUSB_EnumerateDeviceList(5, nullptr));
    EXPECT_EQ(records[1], LibUSB_EnumerateDeviceList(5, records[0]));
    EXPECT_EQ(nullptr, LibUSB_EnumerateDeviceList(5, records[1]));
}

TEST_F(ListChain, EnumerationLooksAtTheHandleOnlyToStart) {
    const auto records = addRecords(*addList(5, {1}), 2);
    EXPECT_EQ(records[1], LibUSB_EnumerateDeviceList(99, records[0]));
    EXPECT_EQ(nullptr, LibUSB_EnumerateDeviceList(99, nullptr));
}

TEST_F(ListChain, EnumeratesNothingInAnEmptyListOrChain) {
    EXPECT_EQ(nullptr, LibUSB_EnumerateDeviceList(5, nullptr));
    addList(5, {1});
    EXPECT_EQ(nullptr, LibUSB_EnumerateDeviceList(5, nullptr));
}

TEST_F(ListChain, FindsARecordByItsIndex) {
    const auto records = addRecords(*addList(5, {1}), 3);
    EXPECT_EQ(records[0], LibUSB_GetDeviceFromIndex(5, 0));
    EXPECT_EQ(records[2], LibUSB_GetDeviceFromIndex(5, 2));
}

TEST_F(ListChain, HasNoRecordAtTheNumberOfRecordsAndBeyond) {
    addRecords(*addList(5, {1}), 3);
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 3));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 4));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 0xFFFFFFFF));
}

TEST_F(ListChain, AbsentRecordsCountForTheIndex) {
    const auto records = addRecords(*addList(5, {1}), 2);
    records[0]->isPresent = 0;
    EXPECT_EQ(records[0], LibUSB_GetDeviceFromIndex(5, 0));
    EXPECT_EQ(records[1], LibUSB_GetDeviceFromIndex(5, 1));
}

TEST_F(ListChain, HasNoRecordInAnUnknownOrEmptyList) {
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 0));
    addList(5, {1});
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 0));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 1));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(6, 0));
}

TEST_F(ListChain, TheChangeListIsAlwaysEmpty) {
    const auto records = addRecords(*addList(5, {1}), 1);
    records[0]->isPresent = 0;
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromChangeList(5, 0));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromChangeList(5, 1));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromChangeList(99, 0));
}

TEST_F(ListChain, FindsTheFirstListOfAContextThatWatchesAVendor) {
    addList(0, {0x1111}, 1);
    addList(1, {0x2222, 0x3333}, 2);
    tagUSB_DEVICE_LIST* wanted = addList(2, {0x2222, 0x1111}, 1);
    addList(3, {0x1111, 0x2222}, 1);
    EXPECT_EQ(wanted, find_device_list(contextOf(1), 0x2222));
    EXPECT_EQ(nullptr, find_device_list(contextOf(1), 0x3333));
    EXPECT_EQ(nullptr, find_device_list(contextOf(3), 0x1111));
}

TEST_F(ListChain, FindsEmptyListsToo) {
    tagUSB_DEVICE_LIST* empty = addList(0, {0x1111}, 1);
    addRecords(*addList(1, {0x1111}, 1), 1);
    EXPECT_EQ(empty, find_device_list(contextOf(1), 0x1111));
}

TEST_F(ListChain, FindsAVendorInTheLastSlot) {
    std::vector<int32_t> ids(16, 0x1111);
    ids[15] = 0x2222;
    tagUSB_DEVICE_LIST* list = addList(0, ids, 1);
    EXPECT_EQ(list, find_device_list(contextOf(1), 0x2222));
}

TEST_F(ListChain, AListOfAnEndedSessionIsNeverFound) {
    addList(0, {0x1111}, 1)->pContext = nullptr;
    EXPECT_EQ(nullptr, find_device_list(nullptr, 0x1111));
    EXPECT_EQ(nullptr, find_device_list(contextOf(1), 0x1111));
}

TEST_F(ListChain, IdSetsMatchInAnyOrder) {
    const tagUSB_DEVICE_LIST* list = addList(0, {1, 2, 3});
    EXPECT_TRUE(contains(list, {1, 2, 3}));
    EXPECT_TRUE(contains(list, {3, 1, 2}));
    EXPECT_FALSE(contains(list, {1, 2}));
    EXPECT_FALSE(contains(list, {1, 2, 3, 4}));
    EXPECT_FALSE(contains(list, {1, 2, 4}));
    EXPECT_FALSE(contains(list, {}));
}

TEST_F(ListChain, IdSetsDoNotSeeDuplicates) {
    const tagUSB_DEVICE_LIST* list = addList(0, {1, 1});
    EXPECT_TRUE(contains(list, {1, 2}));
    EXPECT_FALSE(contains(list, {2, 3}));
    EXPECT_FALSE(contains(addList(1, {1, 2}), {1, 1}));
}

TEST_F(ListChain, SixteenIdsMatch) {
    const std::vector<int32_t> ids(16, 5);
    EXPECT_TRUE(contains(addList(0, ids), ids));
}

TEST_F(ListChain, IdSetsEndAtTheFirstMinusOne) {
    const tagUSB_DEVICE_LIST* list = addList(0, {1, -1, 2});
    EXPECT_TRUE(contains(list, {1}));
    EXPECT_FALSE(contains(list, {1, -1, 2}));
}

TEST_F(ListChain, NoIdsMatchAListWithoutIds) {
    EXPECT_TRUE(deviceListContainsVIDList(addList(0, {}), 0, nullptr));
}

TEST_F(ListChain, ContainsAVendorInAnySlot) {
    const tagUSB_DEVICE_LIST* list = addList(0, {1, 2});
    EXPECT_TRUE(deviceListContainsVID(list, 1));
    EXPECT_TRUE(deviceListContainsVID(list, 2));
    EXPECT_FALSE(deviceListContainsVID(list, 3));
    EXPECT_TRUE(deviceListContainsVID(list, -1));
}

TEST_F(ListChain, ContainsOnlyAVendorWhenItStandsAlone) {
    EXPECT_TRUE(deviceListContainsOnlyVID(addList(0, {1}), 1));
    EXPECT_FALSE(deviceListContainsOnlyVID(addList(1, {1}), 2));
    EXPECT_FALSE(deviceListContainsOnlyVID(addList(2, {1, 2}), 1));
    EXPECT_FALSE(deviceListContainsOnlyVID(addList(3, {2, 1}), 1));
}

TEST_F(ListChain, FindsEachIndexWhateverWasAskedForBefore) {
    addList(5, {1});
    const auto one = addRecords(*g_pDeviceList, 4);
    const auto other = addRecords(*addList(6, {2}), 2);
    for (const uint32_t index : {0U, 1U, 3U, 2U, 2U, 0U}) {
        EXPECT_EQ(one.at(index), LibUSB_GetDeviceFromIndex(5, index)) << index;
    }
    EXPECT_EQ(other.at(1), LibUSB_GetDeviceFromIndex(6, 1));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(6, 2));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(7, 0));
    EXPECT_EQ(other.at(1), LibUSB_GetDeviceFromIndex(6, 1));
}

TEST_F(ListChain, FindsNothingByAnIndexFromBeforeAChange) {
    tagUSB_DEVICE_LIST* list = addList(5, {1});
    const auto records = addRecords(*list, 3);
    EXPECT_EQ(records.at(1), LibUSB_GetDeviceFromIndex(5, 1));
    unlinkRecord(*records.at(1));
    EXPECT_EQ(records.at(2), LibUSB_GetDeviceFromIndex(5, 1));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(5, 2));
    appendRecords(*list, records.at(1));
    EXPECT_EQ(records.at(1), LibUSB_GetDeviceFromIndex(5, 2));
}

}  // namespace
