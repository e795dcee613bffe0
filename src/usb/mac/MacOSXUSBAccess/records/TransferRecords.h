#pragma once

#include <optional>

#include "ground/DeviceRecords.h"
#include "ground/SharedField.h"

// The 32 transfer records of an open record, and the threads that use them.

/// Counts the calling thread as inside a call on an open record, from before it reads the record until it no
/// longer uses its transfers and handle. On a record that is not open nothing is counted, so that repeated
/// calls cannot hold up a close; such a call must be refused as not open.
class ActiveCall {
 public:
    explicit ActiveCall(tagUSB_DEVICE_ACCESS_ENTRY& entry)
        : calls_(loadShared(entry.isOpen) == 0 ? nullptr : &privateSide(entry).activeCalls) {
        if (calls_ != nullptr) {
            calls_->fetch_add(1);
        }
    }
    ~ActiveCall() {
        if (calls_ != nullptr) {
            calls_->fetch_sub(1);
        }
    }
    ActiveCall(const ActiveCall&) = delete;
    ActiveCall& operator=(const ActiveCall&) = delete;

    bool isCounted() const { return calls_ != nullptr; }

 private:
    std::atomic<int32_t>* calls_;
};

/// Gives a transfer its endpoint address exclusively until its thread has read the outcome. The end of
/// isPending would be too early: another transfer could overwrite the outcome and the waiter before the
/// thread has read them. When another thread owns the address, the calling thread is counted like an
/// ActiveCall, and its transfer must be refused. On a HID record, too, it is only counted: HID transfers use
/// no address.
class EndpointTurn {
 public:
    EndpointTurn(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address)
        : lane_(entry.isHid != 0 ? nullptr : laneOf(entry, address)),
          isAlone_(loadShared(entry.isOpen) != 0 && lane_ != nullptr && !lane_->inUse.exchange(true)) {
        if (!isAlone_) {
            call_.emplace(entry);
        }
    }
    ~EndpointTurn() {
        if (isAlone_) {
            lane_->inUse.store(false, std::memory_order_release);
        }
    }
    EndpointTurn(const EndpointTurn&) = delete;
    EndpointTurn& operator=(const EndpointTurn&) = delete;

    bool isCounted() const { return isAlone_ || call_->isCounted(); }
    /// True when the calling thread owns the address.
    bool isAlone() const { return isAlone_; }
    /// Null for an invalid address and for a HID record.
    EndpointLane* lane() const { return lane_; }

 private:
    EndpointLane* lane_;
    bool isAlone_;
    std::optional<ActiveCall> call_;
};

/// True while some thread is inside a call on the record.
bool someThreadIsInside(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Creates a transfer record with a libusb transfer for each endpoint address 0x00 to 0x0F and 0x80 to 0x8F.
/// Returns false when memory runs out; endOpenState frees what was created.
bool createTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Cancels the transfers in flight. Returns true when there are none and no thread is inside the record.
bool cancelTransfers(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Frees the transfer records of a record without transfers in flight.
void freeTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry);
