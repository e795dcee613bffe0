#pragma once

#include "ground/DeviceRecords.h"

// Control transfers on endpoint 0, and resets.
//
// `buffer` starts with the 8-byte setup packet (bmRequestType, bRequest, wValue, wIndex, wLength, the words
// little endian), followed by room for wLength data bytes: data to send, or data received. The direction is
// that of bmRequestType. `timeout` is in milliseconds, 0 for no limit. `ignored` is unused.
//
// Results: the bytes transferred in the data stage; -109 not open; -120 a HID record; -112 (write) or -113
// (read) submission failed, with libusb's code in `lastResult`. A null buffer is a failed submission.
// Deliberate: a stall or a time-out returns the bytes transferred as well, never -150.

int32_t LibUSB_WriteControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                                uint8_t* buffer);
int32_t LibUSB_ReadControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                               uint8_t* buffer);

/// Bytes of the setup packet at the head of a control buffer.
constexpr int32_t kSetupPacketBytes = 8;
/// Bytes that a control transfer may access from `buffer` on: 8 plus the wLength of the setup packet, of
/// whose 8 bytes all must be readable.
int32_t controlBufferBytes(const uint8_t* buffer);

/// Resets the device's port. Returns libusb's code, -109 not open, or -120 a HID record.
int32_t LibUSB_ResetDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
/// Not offered on this platform: always -120, also on a closed record.
int32_t LibUSB_ResetPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint);
/// Not offered on this platform: always -120.
int32_t LibUSB_RestartDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
