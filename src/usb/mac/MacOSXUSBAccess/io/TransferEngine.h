#pragma once

#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/DeviceRecords.h"

struct libusb_transfer;

// What every transfer of the library goes through: one readiness test, one submit-and-wait.

/// 0 when the record is open through libusb and has transfer records; -109 not open or without them; -120 a
/// HID record. Each refusal is logged.
int32_t checkBulkTransferReady(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// The same for a call that has begun: one that is not counted is refused as not open.
int32_t checkReady(bool isCounted, tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// One transfer as its caller wants it.
struct TransferRequest {
    uint8_t address;        ///< endpoint address with its direction bit, that of the turn
    uint8_t type;           ///< libusb_transfer_type
    int32_t timeout;        ///< milliseconds; 0 waits for ever
    uint8_t* buffer;        ///< at least `length` bytes
    int32_t length;         ///< bytes
    int32_t failureResult;  ///< result of a failed submission: -112 or -113
};

/// How a transfer ended.
struct TransferOutcome {
    int32_t status;        ///< libusb_transfer_status
    int32_t actualLength;  ///< bytes moved
};

/// Submits the request on the transfer record of its turn and handles events until it has ended. Returns 0
/// and fills `outcome`; the request's failureResult with libusb's code in `lastResult`; -109 when the address
/// has no record. A negative length, a null buffer for a length above 0 and an address that another thread
/// has not left yet are failed submissions that never reach libusb.
int32_t runTransfer(const EndpointTurn& turn, tagUSB_DEVICE_ACCESS_ENTRY& entry,
                    const TransferRequest& request, TransferOutcome& outcome);

/// Completion callback of every transfer; runs on whichever thread handles the context's events.
void InternalTransferCallback(libusb_transfer* transfer);
