#include "MacOSXUSBAccess/records/TransferRecords.h"

#include <libusb.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>

#include "ground/SharedField.h"

namespace {

constexpr int kEndpointNumbers = kEndpointLanes / 2;

void createTransferRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry, int address) {
    auto record = std::make_unique<tagUSB_CALLBACK_INFO>();
    entry.callbackInfos.emplace(static_cast<uint8_t>(address), record.get());
    record->pTransfer = libusb_alloc_transfer(0);
    laneOf(entry, static_cast<uint8_t>(address))->record = record.get();
    if (record.release()->pTransfer == nullptr) {
        throw std::bad_alloc();
    }
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
        return false;
    }
}

bool cancelTransfers(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    bool quiet = !someThreadIsInside(entry);
    for (const auto& [address, record] : entry.callbackInfos) {
        if (loadShared(record->isPending) != 0) {
            libusb_cancel_transfer(record->pTransfer);
            quiet = false;
        }
    }
    return quiet;
}

void freeTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    for (int number = 0; number < kEndpointNumbers; ++number) {
        freeTransferRecord(entry, static_cast<uint8_t>(number));
        freeTransferRecord(entry, static_cast<uint8_t>(number | LIBUSB_ENDPOINT_IN));
    }
}
