#pragma once

#include "ground/DeviceRecords.h"

// Bulk and interrupt transfers of an open record. Each blocks its caller's thread until the transfer has
// ended. Different threads may use different endpoint addresses concurrently, one thread per address.
//
// `endpoint` is an endpoint address, cut to 8 bits; writes clear its direction bit, reads set it. `length` is
// the number of bytes to transfer; `buffer` holds at least as many. `timeout` is in milliseconds, 0 for no
// limit (a HID read returns -150 at once).
//
// Results: the bytes transferred, also for a transfer that stalled, was cancelled or lost its device (then
// often 0); -109 record not open or endpoint number above 15; -120 bulk on a HID record; -112 (writes) or
// -113 (reads) submission failed, with libusb's code in `lastResult`; -150 timed out; -114 packet size
// outside 64 to 1024.

int32_t LibUSB_WriteBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                             int32_t timeout, uint8_t* buffer);
int32_t LibUSB_ReadBulkPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                            int32_t timeout, uint8_t* buffer);
int32_t LibUSB_WriteInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                  int32_t timeout, uint8_t* buffer);
int32_t LibUSB_ReadInterruptPipe(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                 int32_t timeout, uint8_t* buffer);

/// `packetSize` and `fillValue` are ignored.
int32_t LibUSB_WriteBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                               int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
int32_t LibUSB_ReadBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                              int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);

/// Sends whole packets of `packetSize` bytes (64 to 1024), the last one padded with the low byte of
/// `fillValue`, each with the full time-out. Returns the bytes of `buffer` that were sent; 0 for a length
/// below 1. A cancel ends one packet, which counts as sent, and the next one is sent. When the record is
/// closed meanwhile, the call ends with the current packet and returns the bytes actually transferred.
/// Deliberate: a packet that the device takes short counts as full, and a packet that fails returns its code,
/// not the bytes sent before it.
int32_t LibUSB_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                    int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
/// Checks `packetSize` (64 to 1024 bytes). A HID record takes both settings over and reads reports of that
/// size; other records ignore both.
int32_t LibUSB_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                   int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);

/// Starts to cancel the transfer on exactly this address, direction bit included, and does not wait: the
/// thread that is blocked in the transfer returns the bytes transferred. Returns libusb's code (0;
/// LIBUSB_ERROR_NOT_FOUND when nothing was in flight), -109 or -120.
int32_t LibUSB_CancelPipeTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint);
