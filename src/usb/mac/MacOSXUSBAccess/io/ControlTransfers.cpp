#include "MacOSXUSBAccess/io/ControlTransfers.h"

#include <libusb.h>

#include "MacOSXUSBAccess/io/TransferEngine.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

constexpr uint8_t kControlAddress = 0;

int32_t controlTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t timeout, uint8_t* buffer,
                        int32_t failureResult) {
    const TransferTurn turn(*entry, kControlAddress, Offered::usbOnly);
    if (turn.refusal() != 0) {
        return turn.refusal();
    }
    const int32_t length = buffer == nullptr ? 0 : controlBufferBytes(buffer);
    TransferOutcome outcome{};
    const int32_t result = runTransfer(
        turn, {kControlAddress, LIBUSB_TRANSFER_TYPE_CONTROL, timeout, buffer, length, failureResult},
        outcome);
    return result != 0 ? result : outcome.actualLength;
}

}  // namespace

int32_t controlBufferBytes(const uint8_t* buffer) {
    return kSetupPacketBytes + (buffer[6] | buffer[7] << 8);
}

int32_t LibUSB_WriteControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*ignored*/, int32_t timeout,
                                uint8_t* buffer) {
    return controlTransfer(entry, timeout, buffer, kWriteFailed);
}

int32_t LibUSB_ReadControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t /*ignored*/, int32_t timeout,
                               uint8_t* buffer) {
    return controlTransfer(entry, timeout, buffer, kReadFailed);
}

int32_t LibUSB_ResetDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    const ActiveCall call(*entry);
    if (!call.isCounted() || loadShared(entry->isOpen) == 0) {
        return kNotOpen;
    }
    if (entry->isHid != 0) {
        return kNotOffered;
    }
    return entry->hDevice == nullptr ? kNotOpen : libusb_reset_device(entry->hDevice);
}

int32_t LibUSB_ResetPipe(tagUSB_DEVICE_ACCESS_ENTRY* /*entry*/, int32_t /*endpoint*/) {
    return kNotOffered;
}

int32_t LibUSB_RestartDevice(tagUSB_DEVICE_ACCESS_ENTRY* /*entry*/) {
    return kNotOffered;
}
