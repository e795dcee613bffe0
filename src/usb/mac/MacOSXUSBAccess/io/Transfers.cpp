#include "MacOSXUSBAccess/io/Transfers.h"

#include <libusb.h>

#include <algorithm>

#include "HidHandling/HidDispatch.h"
#include "MacOSXUSBAccess/io/TransferEngine.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/DeviceRecords.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

uint8_t outAddress(int32_t endpoint) {
    return static_cast<uint8_t>(endpoint & 0x7F);
}
uint8_t inAddress(int32_t endpoint) {
    return static_cast<uint8_t>(endpoint | LIBUSB_ENDPOINT_IN);
}

TransferRequest writeRequest(uint8_t type, int32_t endpoint, int32_t length, int32_t timeout,
                             uint8_t* buffer) {
    return {outAddress(endpoint), type, timeout, buffer, length, kWriteFailed};
}

TransferRequest readRequest(uint8_t type, int32_t endpoint, int32_t length, int32_t timeout,
                            uint8_t* buffer) {
    return {inAddress(endpoint), type, timeout, buffer, length, kReadFailed};
}

/// Runs one request on a ready record. Returns the bytes transferred, or a negative code.
int32_t transfer(const EndpointTurn& turn, tagUSB_DEVICE_ACCESS_ENTRY& entry,
                 const TransferRequest& request) {
    TransferOutcome outcome{};
    const int32_t result = runTransfer(turn, entry, request, outcome);
    if (result != 0) {
        return result;
    }
    // Deliberate: only a time-out is an error; any other end returns the bytes transferred.
    return outcome.status == LIBUSB_TRANSFER_TIMED_OUT ? kTimedOut : outcome.actualLength;
}

int32_t transferWhenReady(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request) {
    const EndpointTurn turn(*entry, request.address);
    const int32_t refused = checkReady(turn.isCounted(), entry);
    return refused != 0 ? refused : transfer(turn, *entry, request);
}

/// Runs `hidCall()`, a transfer of a HID record. Without a buffer for its bytes it fails like a submission.
template <class HidCall>
int32_t hidTransfer(tagUSB_DEVICE_ACCESS_ENTRY& entry, const TransferRequest& request, HidCall hidCall) {
    if (request.buffer == nullptr && request.length > 0) {
        storeShared(entry.lastResult, LIBUSB_ERROR_INVALID_PARAM);
        return request.failureResult;
    }
    return hidCall();
}

/// The frame of an interrupt call. Runs `usbCall(turn)` on a libusb record, for which `check(isCounted)`
/// returns 0, or `hidCall()` on a HID record, for which it returns -120; any other result of `check` is
/// returned.
template <class Check, class UsbCall, class HidCall>
int32_t interruptCall(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request, Check check,
                      UsbCall usbCall, HidCall hidCall) {
    if (entry->isHid == 1) {
        const ActiveCall call(*entry);
        const int32_t refused = check(call.isCounted());
        return refused == kNotOffered ? hidTransfer(*entry, request, hidCall) : refused;
    }
    const EndpointTurn turn(*entry, request.address);
    const int32_t refused = check(turn.isCounted());
    return refused != 0 ? refused : usbCall(turn);
}

/// An interrupt transfer that is not split into packets by the library.
template <class HidCall>
int32_t interruptTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request,
                          HidCall hidCall) {
    return interruptCall(
        entry, request, [&](bool isCounted) { return checkReady(isCounted, entry); },
        [&](const EndpointTurn& turn) { return transfer(turn, *entry, request); }, hidCall);
}

/// The frame of the extended interrupt calls. Tests readiness, then the packet size.
template <class UsbCall, class HidCall>
int32_t packetCall(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request, int32_t packetSize,
                   UsbCall usbCall, HidCall hidCall) {
    const auto check = [&](bool isCounted) {
        const int32_t refused = checkReady(isCounted, entry);
        const bool ready = refused == 0 || refused == kNotOffered;
        return ready && (packetSize < kSmallestPacket || packetSize > kLargestPacket) ? kBadArgument
                                                                                      : refused;
    };
    return interruptCall(entry, request, check, usbCall, hidCall);
}

/// Returns the bytes that a sent packet adds to the result.
/// Deliberate: a packet that the device took short counts as full.
int32_t credit(const TransferRequest& whole, int32_t packetSize, int32_t share, int32_t moved) {
    if (share < packetSize) {
        return share;
    }
    return moved > whole.length ? whole.length : packetSize;
}

/// Sends the bytes of `whole` as padded packets through a staging buffer.
int32_t writePackets(const EndpointTurn& turn, tagUSB_DEVICE_ACCESS_ENTRY& entry,
                     const TransferRequest& whole, int32_t packetSize, uint8_t fillValue) {
    if (whole.buffer == nullptr && whole.length > 0) {
        return transfer(turn, entry, whole);  // fails there, like every transfer without a buffer
    }
    uint8_t packet[kLargestPacket];
    TransferRequest request = whole;
    request.buffer = packet;
    request.length = packetSize;
    int32_t total = 0;
    int32_t reallyMoved = 0;
    int32_t share = 0;
    for (int32_t offset = 0; offset < whole.length; offset += share) {
        share = std::min(packetSize, whole.length - offset);
        std::copy_n(whole.buffer + offset, share, packet);
        std::fill(packet + share, packet + packetSize, fillValue);
        const int32_t moved = transfer(turn, entry, request);
        if (moved < 0) {
            return moved;
        }
        total += credit(whole, packetSize, share, moved);
        reallyMoved += std::min(moved, share);
        // A thread that closes the record waits for this one, which must not go on sending.
        if (loadShared(entry.isOpen) == 0) {
            return reallyMoved;
        }
    }
    return total;
}

}  // namespace

int32_t LibUSB_WriteBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                             int32_t timeout, uint8_t* buffer) {
    return transferWhenReady(entry,
                             writeRequest(LIBUSB_TRANSFER_TYPE_BULK, endpoint, length, timeout, buffer));
}

int32_t LibUSB_ReadBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                            int32_t timeout, uint8_t* buffer) {
    return transferWhenReady(entry,
                             readRequest(LIBUSB_TRANSFER_TYPE_BULK, endpoint, length, timeout, buffer));
}

int32_t LibUSB_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                  int32_t timeout, uint8_t* buffer) {
    return interruptTransfer(
        entry, writeRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer),
        [&] { return HID_WriteInterruptPipe(entry, endpoint, length, timeout, buffer); });
}

int32_t LibUSB_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                 int32_t timeout, uint8_t* buffer) {
    return interruptTransfer(entry,
                             readRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer),
                             [&] { return HID_ReadInterruptPipe(entry, endpoint, length, timeout, buffer); });
}

int32_t LibUSB_WriteBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                               int32_t timeout, uint8_t* buffer, int32_t /*packetSize*/,
                               int32_t /*fillValue*/) {
    return LibUSB_WriteBulkPipe(entry, endpoint, length, timeout, buffer);
}

int32_t LibUSB_ReadBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                              int32_t timeout, uint8_t* buffer, int32_t /*packetSize*/,
                              int32_t /*fillValue*/) {
    return LibUSB_ReadBulkPipe(entry, endpoint, length, timeout, buffer);
}

int32_t LibUSB_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                    int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue) {
    const TransferRequest whole =
        writeRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer);
    return packetCall(
        entry, whole, packetSize,
        [&](const EndpointTurn& turn) {
            return writePackets(turn, *entry, whole, packetSize, static_cast<uint8_t>(fillValue));
        },
        [&] {
            return HID_WriteInterruptPipeEx(entry, endpoint, length, timeout, buffer, packetSize, fillValue);
        });
}

int32_t LibUSB_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                   int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue) {
    const TransferRequest whole =
        readRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer);
    return packetCall(
        entry, whole, packetSize, [&](const EndpointTurn& turn) { return transfer(turn, *entry, whole); },
        [&] {
            return HID_ReadInterruptPipeEx(entry, endpoint, length, timeout, buffer, packetSize, fillValue);
        });
}

int32_t LibUSB_CancelPipeTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint) {
    const ActiveCall call(*entry);
    const int32_t refused = checkReady(call.isCounted(), entry);
    if (refused != 0) {
        return refused;
    }
    const auto found = entry->callbackInfos.find(static_cast<uint8_t>(endpoint));
    return found == entry->callbackInfos.end() ? kNotOpen : libusb_cancel_transfer(found->second->pTransfer);
}
