#pragma once

#include "ground/DeviceRecords.h"

// Creation and deletion of records, on the Java callers' threads, which serialise list operations.

/// Creates the record of a present device, with the standard packet size and unused endpoints; its other
/// fields are zero. It belongs to `list` but is not linked into it.
tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list);

/// Unlinks a record, drops its reference on the device and deletes it. A record that the open-device map may
/// point to, that a thread is using, or whose transfers have not completed is kept aside instead.
void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Unlinks a closed record and keeps it outside of every list, so that a late call finds it not open.
void keepRecordAside(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Finishes what earlier calls had to leave, without waiting: ends the open state of closed records whose
/// transfers have completed by now, which frees their interfaces, and deletes the records kept aside that are
/// no longer in use.
void finishCloses();

/// Detaches a record from its ending session: frees its transfers, closes its handle and drops its reference
/// on the device. The record stays in its list, but no call on it reaches libusb any more. Returns false when
/// a transfer does not complete.
bool severFromSession(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// The same for the records of this list that are kept aside.
bool severKeptAside(const tagUSB_DEVICE_LIST& list);

/// Formats a text into one of a record's string fields, cut at 127 characters.
void formatText(char (&field)[kStringBytes], const char* format, ...) __attribute__((format(printf, 2, 3)));
