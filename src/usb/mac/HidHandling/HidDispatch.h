#pragma once

#include "ground/DeviceRecords.h"

// The device calls of a HID record, handed to its HIDAccess. The endpoint is ignored: a HID device has one
// stream of output and one of input reports. Sizes in bytes, time-outs in milliseconds. Results are those of
// the HIDAccess.

int32_t HID_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
int32_t HID_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// Control transfers are not offered: always -120.
int32_t HID_WriteControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                             uint8_t* buffer);
int32_t HID_ReadControlPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t ignored, int32_t timeout,
                            uint8_t* buffer);

/// With the record's standing settings (64 bytes, pad 0x5A), also on a device that was opened with its own:
/// meant.
int32_t HID_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                               int32_t timeout, uint8_t* buffer);
int32_t HID_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                              int32_t timeout, uint8_t* buffer);

/// With the settings given; the packet size has been checked.
int32_t HID_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                                 int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
int32_t HID_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t size,
                                int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
