#pragma once

#include "ground/DeviceRecords.h"

// Device calls on a HID record, forwarded to its HIDAccess, whose results they return. The endpoint is
// ignored: a HID device has one stream of input and one of output reports. Sizes are in bytes, time-outs in
// milliseconds.

int32_t HID_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
int32_t HID_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// Control transfers are not offered: always -120.
int32_t HID_WriteControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                             uint8_t* buffer);
int32_t HID_ReadControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                            uint8_t* buffer);

/// Use the record's settings: reports of 64 bytes, pad byte 0x5A.
/// Deliberate: these replace the settings that Open chose (512 bytes, pad byte 0, for vendor 0x6A5D).
int32_t HID_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                               int32_t timeout, uint8_t* buffer);
int32_t HID_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                              int32_t timeout, uint8_t* buffer);

/// Use the given settings. The caller has checked `packetSize` (64 to 1024 bytes); of `fillValue` the low 8
/// bits count.
int32_t HID_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                                 int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
int32_t HID_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                                int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
