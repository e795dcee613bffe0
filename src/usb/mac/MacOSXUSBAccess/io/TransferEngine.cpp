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
    return isSubmittable(request) ? libusb_submit_transfer(&transfer) : LIBUSB_ERROR_INVALID_PARAM;
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
                    const tagUSB_CALLBACK_INFO*& ended) {
    const auto found = entry.callbackInfos.find(request.address);
    if (found == entry.callbackInfos.end()) {
        return kTransferNotOpen;
    }
    TransferRecord& record = privateSide(*found->second);
    if (exchangeShared(record.isPending, 1) != 0) {
        storeShared(entry.lastResult, LIBUSB_ERROR_BUSY);
        return request.failureResult;
    }
    const int result = submit(entry, record, request);
    if (result != LIBUSB_SUCCESS) {
        storeShared(entry.lastResult, result);
        storeShared(record.isPending, 0);
        return request.failureResult;
    }
    waitWhilePending(record, loadShared(entry.pDeviceList->pContext));
    ended = &record;
    return 0;
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
