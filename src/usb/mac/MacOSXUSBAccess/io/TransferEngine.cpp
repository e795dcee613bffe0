#include "MacOSXUSBAccess/io/TransferEngine.h"

#include <libusb.h>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "MacOSXUSBAccess/records/SharedField.h"

namespace {

/// True when the request may go to libusb as it is. A control transfer without a buffer has no setup packet.
bool isSubmittable(const TransferRequest& request) {
    const bool needsBuffer = request.length > 0 || request.type == LIBUSB_TRANSFER_TYPE_CONTROL;
    return request.length >= 0 && (request.buffer != nullptr || !needsBuffer);
}

int32_t refuseNotOpen() {
    debug_log("[checkBulkTransferReady] not acquired");
    return kTransferNotOpen;
}

int submit(tagUSB_DEVICE_ACCESS_ENTRY& entry, TransferRecord& record, const TransferRequest& request) {
    libusb_transfer& transfer = *record.pTransfer;
    transfer.dev_handle = entry.hDevice;
    transfer.endpoint = request.address;
    transfer.type = request.type;
    transfer.timeout = static_cast<unsigned int>(request.timeout);
    transfer.buffer = request.buffer;
    if (request.type != LIBUSB_TRANSFER_TYPE_CONTROL || request.buffer != nullptr) {
        transfer.length =
            request.length;  // a control transfer without a buffer leaves the length before: meant
    }
    transfer.user_data = &entry;
    transfer.callback = InternalTransferCallback;
    startWait(record);
    storeShared(record.isPending, 1);
    return isSubmittable(request) ? libusb_submit_transfer(&transfer) : LIBUSB_ERROR_INVALID_PARAM;
}

/// One transfer on a record that the calling thread has to itself.
int32_t runOn(tagUSB_DEVICE_ACCESS_ENTRY& entry, TransferRecord& record, const TransferRequest& request,
              TransferOutcome& outcome) {
    const int result = submit(entry, record, request);
    if (result != LIBUSB_SUCCESS) {
        storeShared(entry.lastResult, result);
        storeShared(record.isPending, 0);
        return request.failureResult;
    }
    waitWhilePending(record, loadShared(entry.pDeviceList->pContext));
    outcome = {record.status, record.actualLength};
    return 0;
}

}  // namespace

int32_t checkBulkTransferReady(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    if (loadShared(entry->isOpen) == 0) {
        return refuseNotOpen();
    }
    if (entry->isHid == 1) {
        debug_log("[checkBulkTransferReady] isHid == true");
        return kTransferNotOffered;
    }
    if (entry->callbackInfos.empty()) {
        debug_log("[checkBulkTransferReady] cbInfo map is empty");
        return kTransferNotOpen;
    }
    return 0;
}

int32_t checkReady(const ActiveCall& call, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    return call.isCounted() ? checkBulkTransferReady(entry) : refuseNotOpen();
}

int32_t runTransfer(tagUSB_DEVICE_ACCESS_ENTRY& entry, const TransferRequest& request,
                    TransferOutcome& outcome) {
    const auto found = entry.callbackInfos.find(request.address);
    if (found == entry.callbackInfos.end()) {
        return kTransferNotOpen;
    }
    TransferRecord& record = privateSide(*found->second);
    // Held beyond the end of isPending: a transfer that came in between would overwrite the outcome and the
    // wait of the thread that has not seen its own end yet.
    if (record.inUse.exchange(true)) {
        storeShared(entry.lastResult, LIBUSB_ERROR_BUSY);
        return request.failureResult;
    }
    const int32_t result = runOn(entry, record, request, outcome);
    record.inUse.store(false);
    return result;
}

void InternalTransferCallback(libusb_transfer* transfer) {
    auto& entry = *static_cast<tagUSB_DEVICE_ACCESS_ENTRY*>(transfer->user_data);
    const auto found = entry.callbackInfos.find(transfer->endpoint);
    if (found == entry.callbackInfos.end()) {
        return;
    }
    TransferRecord& record = privateSide(*found->second);
    record.status = transfer->status;
    record.length = transfer->length;
    record.actualLength = transfer->actual_length;
    finishPending(record);
}
