#pragma once

#include "ground/DeviceRecords.h"

// Bulk and interrupt transfers of an open record, each on its caller's thread, which sleeps until the
// transfer has ended. Different endpoint addresses may be used by different threads at once; one address by
// one thread.
//
// Arguments: `endpoint` is a USB endpoint address, cut to 8 bits; writes clear its direction bit, reads set
// it. `length` bytes are moved between the device and `buffer`, which holds at least as many. `timeout` in
// milliseconds, 0 waits for ever.
//
// Results: the bytes moved, also for a transfer that stalled, was cancelled or lost its device (then often
// 0); -109 record not open or no such endpoint number (above 15); -120 bulk on a HID record; -112 (writes) or
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

/// Packet size and fill value are accepted and ignored.
int32_t LibUSB_WriteBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                               int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
int32_t LibUSB_ReadBulkPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                              int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);

/// Sends whole packets of `packetSize` bytes (64 to 1024), the last one padded with the low byte of
/// `fillValue`, each with the time-out of its own. Returns the bytes of `buffer` that were sent; a packet
/// that the device took short counts as full, and a packet that fails hides the ones before it: both meant. A
/// length below 1 returns 0. A cancel ends one packet, which counts as sent, and the next one goes out. When
/// the record is closed meanwhile, the call ends with the packet that is under way and returns the bytes that
/// were really moved.
int32_t LibUSB_WriteInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                    int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);
/// The packet size is checked (64 to 1024), then neither it nor the fill value plays a part.
int32_t LibUSB_ReadInterruptPipeEx(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length,
                                   int32_t timeout, uint8_t* buffer, int32_t packetSize, int32_t fillValue);

/// Starts the cancellation of the transfer on exactly this address, direction bit included, and does not wait
/// for it: the thread blocked in it returns with what was moved. Returns libusb's code (0;
/// LIBUSB_ERROR_NOT_FOUND when nothing was in flight), -109 or -120.
int32_t LibUSB_CancelPipeTransfer(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint);
