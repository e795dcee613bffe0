#pragma once

#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/DeviceRecords.h"

struct libusb_transfer;

// The readiness test and the submit-and-wait of every libusb transfer.

/// Returns 0 when the record is open through libusb and has transfer records; -109 when it is not open or has
/// none; -120 for a HID record. Each refusal is logged.
int32_t checkBulkTransferReady(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// The same for a thread that counts itself in with `call`. Not counted, it is refused as not open (-109).
int32_t checkReady(const ActiveCall& call, tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// What runs the transfers of a record.
enum class Route { usb, hid };
/// The records that a kind of transfer is offered for.
enum class Offered { usbOnly, usbAndHid };

/// Lets one transfer, or a row of them, onto an endpoint address of a record, or refuses it. For its lifetime
/// the calling thread counts as inside the record.
class TransferTurn {
 public:
    TransferTurn(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address, Offered offered);

    /// 0, or the result of the refused transfer: -109 not open, -120 not offered for a HID record.
    int32_t refusal() const { return refusal_; }
    Route route() const { return entry_.isHid == 1 ? Route::hid : Route::usb; }
    tagUSB_DEVICE_ACCESS_ENTRY& entry() const { return entry_; }
    const EndpointTurn& endpoint() const { return endpoint_; }

 private:
    tagUSB_DEVICE_ACCESS_ENTRY& entry_;
    EndpointTurn endpoint_;
    int32_t refusal_;
};

/// The parameters of one transfer.
struct TransferRequest {
    uint8_t address;        ///< endpoint address with its direction bit; that of the turn
    uint8_t type;           ///< libusb_transfer_type
    int32_t timeout;        ///< milliseconds; 0 for no limit
    uint8_t* buffer;        ///< at least `length` bytes
    int32_t length;         ///< bytes
    int32_t failureResult;  ///< result of a failed submission: -112 or -113
};

/// The outcome of a completed transfer.
struct TransferOutcome {
    int32_t status;        ///< libusb_transfer_status
    int32_t actualLength;  ///< bytes transferred
};

/// Submits the request on the transfer record of its turn, which is not refused and on the route of libusb,
/// and handles events until it completes. Returns 0 and fills `outcome`; the request's failureResult, with
/// libusb's code in `lastResult`, when the submission fails; -109 when the address has no transfer record. A
/// negative length, a null buffer for a length above 0, and an address that another thread owns fail without
/// reaching libusb.
int32_t runTransfer(const TransferTurn& turn, const TransferRequest& request, TransferOutcome& outcome);

/// Stores libusb's code of a failed submission in `lastResult`. Returns the request's failureResult.
int32_t failedSubmission(tagUSB_DEVICE_ACCESS_ENTRY& entry, const TransferRequest& request, int libusbCode);

/// Completion callback of every transfer; runs on whichever thread handles the context's events.
void InternalTransferCallback(libusb_transfer* transfer);
