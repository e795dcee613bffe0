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

/// Runs one request on the route of libusb. Returns the bytes transferred, or a negative code.
int32_t transfer(const TransferTurn& turn, const TransferRequest& request) {
    TransferOutcome outcome{};
    const int32_t result = runTransfer(turn, request, outcome);
    if (result != 0) {
        return result;
    }
    // Deliberate: only a time-out is an error; any other end returns the bytes transferred.
    return outcome.status == LIBUSB_TRANSFER_TIMED_OUT ? kTimedOut : outcome.actualLength;
}

int32_t bulkTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request) {
    const TransferTurn turn(*entry, request.address, Offered::usbOnly);
    return turn.refusal() != 0 ? turn.refusal() : transfer(turn, request);
}

/// Runs one request on the route of the HID interface with `function`, whose further arguments are `more`.
/// Without a buffer for its bytes it fails like a submission.
template <class HidFunction, class... More>
int32_t hidTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request, HidFunction function,
                    More... more) {
    if (request.buffer == nullptr && request.length > 0) {
        return failedSubmission(*entry, request, LIBUSB_ERROR_INVALID_PARAM);
    }
    return function(entry, request.address, request.length, request.timeout, request.buffer, more...);
}

/// An interrupt transfer that is not split into packets by the library.
template <class HidFunction>
int32_t interruptTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, const TransferRequest& request,
                          HidFunction hidFunction) {
    const TransferTurn turn(*entry, request.address, Offered::usbAndHid);
    if (turn.refusal() != 0) {
        return turn.refusal();
    }
    return turn.route() == Route::hid ? hidTransfer(entry, request, hidFunction) : transfer(turn, request);
}

/// The refusal of an extended interrupt call: that of its turn, or -114 for its packet size.
int32_t packetRefusal(const TransferTurn& turn, int32_t packetSize) {
    const bool fits = packetSize >= kSmallestPacket && packetSize <= kLargestPacket;
    return turn.refusal() != 0 || fits ? turn.refusal() : kBadArgument;
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
int32_t writePackets(const TransferTurn& turn, const TransferRequest& whole, int32_t packetSize,
                     uint8_t fillValue) {
    if (whole.buffer == nullptr && whole.length > 0) {
        return transfer(turn, whole);  // fails there, like every transfer without a buffer
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
        const int32_t moved = transfer(turn, request);
        if (moved < 0) {
            return moved;
        }
        total += credit(whole, packetSize, share, moved);
        reallyMoved += std::min(moved, share);
        // A thread that closes the record waits for this one, which must not go on sending.
        if (loadShared(turn.entry().isOpen) == 0) {
            return reallyMoved;
        }
    }
    return total;
}

}  // namespace

int32_t LibUSB_WriteBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                             int32_t timeout, uint8_t* buffer) {
    return bulkTransfer(entry, writeRequest(LIBUSB_TRANSFER_TYPE_BULK, endpoint, length, timeout, buffer));
}

int32_t LibUSB_ReadBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                            int32_t timeout, uint8_t* buffer) {
    return bulkTransfer(entry, readRequest(LIBUSB_TRANSFER_TYPE_BULK, endpoint, length, timeout, buffer));
}

int32_t LibUSB_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                  int32_t timeout, uint8_t* buffer) {
    return interruptTransfer(entry,
                             writeRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer),
                             HID_WriteInterruptPipe);
}

int32_t LibUSB_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                 int32_t timeout, uint8_t* buffer) {
    return interruptTransfer(entry,
                             readRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer),
                             HID_ReadInterruptPipe);
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
    const TransferTurn turn(*entry, whole.address, Offered::usbAndHid);
    const int32_t refused = packetRefusal(turn, packetSize);
    if (refused != 0) {
        return refused;
    }
    return turn.route() == Route::hid
               ? hidTransfer(entry, whole, HID_WriteInterruptPipeEx, packetSize, fillValue)
               : writePackets(turn, whole, packetSize, static_cast<uint8_t>(fillValue));
}

int32_t LibUSB_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                   int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue) {
    const TransferRequest whole =
        readRequest(LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, length, timeout, buffer);
    const TransferTurn turn(*entry, whole.address, Offered::usbAndHid);
    const int32_t refused = packetRefusal(turn, packetSize);
    if (refused != 0) {
        return refused;
    }
    return turn.route() == Route::hid
               ? hidTransfer(entry, whole, HID_ReadInterruptPipeEx, packetSize, fillValue)
               : transfer(turn, whole);
}

int32_t LibUSB_CancelPipeTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint) {
    const ActiveCall call(*entry);
    const int32_t refused = checkReady(call, entry);
    if (refused != 0) {
        return refused;
    }
    const auto found = entry->callbackInfos.find(static_cast<uint8_t>(endpoint));
    return found == entry->callbackInfos.end() ? kNotOpen : libusb_cancel_transfer(found->second->pTransfer);
}
