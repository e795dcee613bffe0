#pragma once

#include <optional>

#include "ground/DeviceRecords.h"
#include "ground/SharedField.h"

// The 32 transfer records of an open record, and the safe way out of transfers that are still running when
// the record is closed, released or outlived by its session.

/// Counts the calling thread as inside a call of an open record, from before the call looks at the record
/// until it has left its transfers and handle. A record that is not open counts nobody, so that threads that
/// keep asking cannot hold up a close; such a call is to be refused as not open.
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

/// The same for a transfer, which has its endpoint address to itself meanwhile, also beyond the end of
/// isPending: a transfer that came in between would overwrite the outcome and the wait of the thread that has
/// not seen its own end yet. One that finds another there is a call like any other, and to be refused.
class EndpointTurn {
 public:
    EndpointTurn(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address)
        : lane_(laneOf(entry, address)),
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
    /// False while another thread is in a transfer on the address.
    bool isAlone() const { return isAlone_; }
    /// Null for an address that is none.
    EndpointLane* lane() const { return lane_; }

 private:
    EndpointLane* lane_;
    bool isAlone_;
    std::optional<ActiveCall> call_;
};

/// True while some thread is inside a call of the record.
bool someThreadIsInside(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Makes a record and a transfer for the endpoint addresses 0x00 to 0x0F and 0x80 to 0x8F. False when there
/// is no memory; what was made so far is freed again.
bool createTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Takes the record's open state down: no call can begin, transfers in flight are cancelled, and events are
/// handled until every callback has run and every waiter has left, for at most a few seconds. True when all
/// is quiet. After false some transfer is still libusb's: handle and transfers stay as they are until
/// finishClose or discardOpenState finds them quiet.
bool retireTransfers(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Frees the transfer records of a quiet record.
void freeTransferRecords(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Ends, without a word in the log, what is left of an open state that no close has ended: transfers, their
/// records and the handle. A record without one is left as it is. False when it cannot be ended
/// (retireTransfers).
bool discardOpenState(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Ends, without waiting, the open state that retireTransfers had to leave, if the record is quiet by now.
/// True when the record has no open state.
bool finishClose(tagUSB_DEVICE_ACCESS_ENTRY& entry);
