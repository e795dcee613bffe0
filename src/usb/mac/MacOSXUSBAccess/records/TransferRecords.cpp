#include "MacOSXUSBAccess/records/TransferRecords.h"

#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <new>

#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "ground/SharedField.h"

namespace {

constexpr int kEndpointNumbers = kEndpointLanes / 2;
constexpr std::chrono::seconds kRetireLimit{3};
constexpr timeval kRetirePeriod{0, 10'000};

void createTransferRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry, int address) {
    auto record = std::make_unique<tagUSB_CALLBACK_INFO>();
    entry.callbackInfos.emplace(static_cast<uint8_t>(address), record.get());
    record->pTransfer = libusb_alloc_transfer(0);
    laneOf(entry, static_cast<uint8_t>(address))->record = record.get();
    if (record.release()->pTransfer == nullptr) {
        throw std::bad_alloc();
    }
}

bool hasOpenState(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return entry.hDevice != nullptr || !entry.callbackInfos.empty();
}

/// Cancels the transfers in flight. Returns true when there are none and no thread is inside the record.
bool cancelPending(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    bool quiet = !someThreadIsInside(entry);
    for (const auto& [address, record] : entry.callbackInfos) {
        if (loadShared(record->isPending) != 0) {
            libusb_cancel_transfer(record->pTransfer);
            quiet = false;
        }
    }
    return quiet;
}

void freeTransferRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address) {
    const auto found = entry.callbackInfos.find(address);
    if (found != entry.callbackInfos.end()) {
        libusb_free_transfer(found->second->pTransfer);
        laneOf(entry, address)->record = nullptr;
        delete found->second;
        entry.callbackInfos.erase(found);
    }
}

/// Frees the transfers and closes the handle of a quiet record.
void endOpenState(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    privateSide(entry).closeIsDue = false;
    freeTransferRecords(entry);
    if (entry.hDevice != nullptr) {
        libusb_close(entry.hDevice);
        entry.hDevice = nullptr;
    }
}

}  // namespace

bool someThreadIsInside(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    // Read-modify-writes, not loads: they have one order with those of a thread that enters, so either this
    // check sees that thread, or that thread sees that the record is closed.
    DeviceRecord& record = privateSide(entry);
    return record.activeCalls.fetch_add(0) != 0 ||
           std::any_of(std::begin(record.lanes), std::end(record.lanes), [](EndpointLane& lane) {
               bool inUse = false;
               return !lane.inUse.compare_exchange_strong(inUse, false);
           });
}

bool createTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    try {
        for (int number = 0; number < kEndpointNumbers; ++number) {
            createTransferRecord(entry, number);
            createTransferRecord(entry, number | LIBUSB_ENDPOINT_IN);
        }
        return true;
    } catch (const std::bad_alloc&) {
        freeTransferRecords(entry);
        return false;
    }
}

bool retireTransfers(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    storeShared(entry.isOpen, 0U);
    libusb_context* context = loadShared(entry.pDeviceList->pContext);
    const auto deadline = std::chrono::steady_clock::now() + kRetireLimit;
    while (!cancelPending(entry)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            privateSide(entry).closeIsDue = true;
            return false;
        }
        handleEventsFor(context, kRetirePeriod);
    }
    return true;
}

void freeTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    for (int number = 0; number < kEndpointNumbers; ++number) {
        freeTransferRecord(entry, static_cast<uint8_t>(number));
        freeTransferRecord(entry, static_cast<uint8_t>(number | LIBUSB_ENDPOINT_IN));
    }
}

bool discardOpenState(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (!hasOpenState(entry)) {
        return true;
    }
    if (!retireTransfers(entry)) {
        return false;
    }
    endOpenState(entry);
    return true;
}

bool finishClose(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (privateSide(entry).closeIsDue && cancelPending(entry)) {
        endOpenState(entry);
    }
    return !hasOpenState(entry);
}
