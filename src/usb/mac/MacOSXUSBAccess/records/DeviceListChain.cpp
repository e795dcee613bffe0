#include "MacOSXUSBAccess/records/DeviceListChain.h"

#include <algorithm>
#include <atomic>

#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

tagUSB_DEVICE_LIST* g_pDeviceList = nullptr;
uint32_t g_NextDeviceListHandle = 0;
libusb_context* g_liveContext = nullptr;

namespace {

constexpr int32_t kUnusedSlot = -1;

/// Number of changes to the records of any list. A cursor is valid only while this number is unchanged.
std::atomic<uint64_t> g_chainChanges{0};

/// Result of the thread's last look-up by index. A look-up of a later index continues from here instead of
/// from the head, which makes reading all lines of 100 devices a fifth faster (docs/performance.md).
struct Cursor {
    const tagUSB_DEVICE_LIST* list;
    uint64_t changes;
    uint32_t index;
    tagUSB_DEVICE_ACCESS_ENTRY* entry;  ///< null past the last record
};
thread_local Cursor t_cursor{};

tagUSB_DEVICE_LIST* nextOf(const tagUSB_DEVICE_LIST& list) {
    return loadShared(list.pNextList);
}

template <class Wanted>
tagUSB_DEVICE_LIST* firstListThat(Wanted wanted) {
    tagUSB_DEVICE_LIST* list = loadShared(g_pDeviceList);
    while (list != nullptr && !wanted(*list)) {
        list = nextOf(*list);
    }
    return list;
}

}  // namespace

tagUSB_DEVICE_LIST* newDeviceList(libusb_context* context, int32_t count, const int32_t* vendorIds) {
    auto* list = new tagUSB_DEVICE_LIST{};
    list->pContext = context == g_liveContext ? context : nullptr;
    list->vidCount = count;
    std::fill(std::begin(list->vidList), std::end(list->vidList), kUnusedSlot);
    std::copy_n(vendorIds, std::clamp(count, 0, kMaxVendorIds), list->vidList);
    return list;
}

bool isOfRunningSession(const tagUSB_DEVICE_LIST& list) {
    const libusb_context* context = loadShared(list.pContext);
    return context != nullptr && context == g_liveContext;
}

void appendDeviceList(tagUSB_DEVICE_LIST& list) {
    tagUSB_DEVICE_LIST* last = firstListThat([](const auto& each) { return nextOf(each) == nullptr; });
    list.pPrevList = last;
    storeShared(last == nullptr ? g_pDeviceList : last->pNextList, &list);
}

tagUSB_DEVICE_LIST* findDeviceList(uint32_t handle, int32_t& status) {
    tagUSB_DEVICE_LIST* list = firstListThat([handle](const auto& each) { return each.handle == handle; });
    const int32_t missing = g_pDeviceList == nullptr ? kNoLists : kNoSuchList;
    status = list == nullptr ? missing : 0;
    return list;
}

void appendRecords(tagUSB_DEVICE_LIST& list, tagUSB_DEVICE_ACCESS_ENTRY* first,
                   tagUSB_DEVICE_ACCESS_ENTRY* behind) {
    if (first == nullptr) {
        return;
    }
    tagUSB_DEVICE_ACCESS_ENTRY* last = behind == nullptr ? list.pFirst : behind;
    while (last != nullptr && last->pNext != nullptr) {
        last = last->pNext;
    }
    first->pPrev = last;
    (last == nullptr ? list.pFirst : last->pNext) = first;
    for (; first != nullptr; first = first->pNext) {
        first->pDeviceList = &list;
    }
    ++g_chainChanges;
}

void unlinkRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    (entry.pPrev == nullptr ? entry.pDeviceList->pFirst : entry.pPrev->pNext) = entry.pNext;
    if (entry.pNext != nullptr) {
        entry.pNext->pPrev = entry.pPrev;
    }
    entry.pPrev = nullptr;
    entry.pNext = nullptr;
    ++g_chainChanges;
}

tagUSB_DEVICE_LIST* find_device_list(libusb_context* context, uint32_t vendorId) {
    // A list of an ended session has no context, so a new context at the same address does not match it.
    return context == nullptr ? nullptr : firstListThat([&](const auto& each) {
        return loadShared(each.pContext) == context &&
               deviceListContainsVID(&each, static_cast<int32_t>(vendorId));
    });
}

bool deviceListContainsVIDList(const tagUSB_DEVICE_LIST* list, int32_t count, const int32_t* vendorIds) {
    const int32_t* begin = list->vidList;
    const int32_t* end = std::find(begin, begin + kMaxVendorIds, kUnusedSlot);
    if (end - begin != count) {
        return false;
    }
    return std::all_of(begin, end, [&](int32_t id) {
        return std::find(vendorIds, vendorIds + count, id) != vendorIds + count;
    });
}

bool deviceListContainsVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId) {
    return std::find(std::begin(list->vidList), std::end(list->vidList), vendorId) != std::end(list->vidList);
}

bool deviceListContainsOnlyVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId) {
    return list->vidList[0] == vendorId && list->vidList[1] == kUnusedSlot;
}

tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_EnumerateDeviceList(uint32_t handle,
                                                       tagUSB_DEVICE_ACCESS_ENTRY* previous) {
    if (previous != nullptr) {
        return previous->pNext;
    }
    int32_t status = 0;
    const tagUSB_DEVICE_LIST* list = findDeviceList(handle, status);
    return list == nullptr ? nullptr : list->pFirst;
}

tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromIndex(uint32_t handle, uint32_t index) {
    int32_t status = 0;
    const tagUSB_DEVICE_LIST* list = findDeviceList(handle, status);
    if (list == nullptr) {
        return nullptr;
    }
    Cursor& cursor = t_cursor;
    const uint64_t changes = g_chainChanges.load();
    const bool leadsThere = cursor.list == list && cursor.changes == changes && cursor.index <= index;
    if (!leadsThere) {
        cursor = {list, changes, 0, list->pFirst};
    }
    for (; cursor.entry != nullptr && cursor.index < index; ++cursor.index) {
        cursor.entry = cursor.entry->pNext;
    }
    return cursor.entry;
}

tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromChangeList(uint32_t /*handle*/, uint32_t /*index*/) {
    return nullptr;
}
