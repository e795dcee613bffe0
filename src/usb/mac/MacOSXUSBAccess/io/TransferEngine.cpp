#include "MacOSXUSBAccess/io/TransferEngine.h"

#include <libusb.h>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

/// True when the request may be submitted. A control transfer always needs a buffer, for its setup packet.
bool isSubmittable(const TransferRequest& request) {
    const bool needsBuffer = request.length > 0 || request.type == LIBUSB_TRANSFER_TYPE_CONTROL;
    return request.length >= 0 && (request.buffer != nullptr || !needsBuffer);
}

int32_t refuseNotOpen() {
    debug_log("[checkBulkTransferReady] not acquired");
    return kNotOpen;
}

/// Marks the transfer record as pending and fills in its libusb transfer.
void prepare(tagUSB_DEVICE_ACCESS_ENTRY& entry, EndpointLane& lane, const TransferRequest& request) {
    startWait(lane);
    storeShared(lane.record->isPending, 1);
    libusb_transfer& transfer = *lane.record->pTransfer;
    transfer.dev_handle = entry.hDevice;
    transfer.endpoint = request.address;
    transfer.type = request.type;
    transfer.timeout = static_cast<unsigned int>(request.timeout);
    transfer.buffer = request.buffer;
    // Deliberate: a control transfer without a buffer keeps the previous length; its submission fails anyway.
    if (request.type != LIBUSB_TRANSFER_TYPE_CONTROL || request.buffer != nullptr) {
        transfer.length = request.length;
    }
    transfer.user_data = &entry;
    transfer.callback = InternalTransferCallback;
}

/// The readiness test. Deliberate: the log names a HID record also where it is not refused.
int32_t refusalOf(const tagUSB_DEVICE_ACCESS_ENTRY& entry, Offered offered) {
    if (loadShared(entry.isOpen) == 0) {
        return refuseNotOpen();
    }
    if (entry.isHid == 1) {
        debug_log("[checkBulkTransferReady] isHid == true");
        return offered == Offered::usbAndHid ? 0 : kNotOffered;
    }
    if (entry.callbackInfos.empty()) {
        debug_log("[checkBulkTransferReady] cbInfo map is empty");
        return kNotOpen;
    }
    return 0;
}

}  // namespace

int32_t checkBulkTransferReady(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    return refusalOf(*entry, Offered::usbOnly);
}

int32_t checkReady(const ActiveCall& call, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    return call.isCounted() ? checkBulkTransferReady(entry) : refuseNotOpen();
}

TransferTurn::TransferTurn(tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t address, Offered offered)
    : entry_(entry),
      endpoint_(entry, address),
      refusal_(endpoint_.isCounted() ? refusalOf(entry, offered) : refuseNotOpen()) {}

int32_t failedSubmission(tagUSB_DEVICE_ACCESS_ENTRY& entry, const TransferRequest& request, int libusbCode) {
    storeShared(entry.lastResult, libusbCode);
    return request.failureResult;
}

int32_t runTransfer(const TransferTurn& turn, const TransferRequest& request, TransferOutcome& outcome) {
    tagUSB_DEVICE_ACCESS_ENTRY& entry = turn.entry();
    if (turn.endpoint().lane() == nullptr || turn.endpoint().lane()->record == nullptr) {
        return kNotOpen;
    }
    if (!turn.endpoint().isAlone()) {
        return failedSubmission(entry, request, LIBUSB_ERROR_BUSY);
    }
    EndpointLane& lane = *turn.endpoint().lane();
    prepare(entry, lane, request);
    int result = LIBUSB_ERROR_INVALID_PARAM;
    if (isSubmittable(request)) {
        result = libusb_submit_transfer(lane.record->pTransfer);
    }
    if (result != LIBUSB_SUCCESS) {
        const int32_t failed = failedSubmission(entry, request, result);
        storeShared(lane.record->isPending, 0);
        return failed;
    }
    waitWhilePending(lane, loadShared(entry.pDeviceList->pContext));
    outcome = {lane.record->status, lane.record->actualLength};
    return 0;
}

void InternalTransferCallback(libusb_transfer* transfer) {
    auto& entry = *static_cast<tagUSB_DEVICE_ACCESS_ENTRY*>(transfer->user_data);
    EndpointLane* lane = laneOf(entry, transfer->endpoint);
    if (lane == nullptr || lane->record == nullptr) {
        return;
    }
    lane->record->status = transfer->status;
    lane->record->length = transfer->length;
    lane->record->actualLength = transfer->actual_length;
    finishPending(*lane);
}
