#pragma once

#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/DeviceRecords.h"

struct libusb_transfer;

// The readiness test and the submit-and-wait of every libusb transfer.

/// Returns 0 when the record is open through libusb and has transfer records; -109 when it is not open or has
/// none; -120 for a HID record. Each refusal is logged.
int32_t checkBulkTransferReady(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// The same for a call that may not be counted as inside the record; such a call is refused as not open
/// (-109).
int32_t checkReady(bool isCounted, tagUSB_DEVICE_ACCESS_ENTRY* entry);

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

/// Submits the request on the transfer record of its turn and handles events until it completes. Returns 0
/// and fills `outcome`; the request's failureResult, with libusb's code in `lastResult`, when the submission
/// fails; -109 when the address has no transfer record. A negative length, a null buffer for a length above
/// 0, and an address that another thread owns fail without reaching libusb.
int32_t runTransfer(const EndpointTurn& turn, tagUSB_DEVICE_ACCESS_ENTRY& entry,
                    const TransferRequest& request, TransferOutcome& outcome);

/// Completion callback of every transfer; runs on whichever thread handles the context's events.
void InternalTransferCallback(libusb_transfer* transfer);
