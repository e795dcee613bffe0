#pragma once

#include "ground/DeviceRecords.h"

// Birth and end of a record. On the Java callers' threads that serialise list operations.

/// A record, zeroed but for its endpoints (unused), that belongs to `list` but is not in its chain yet.
tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list);

/// Takes a record out of its list, lets go of its device and deletes it. A record that the open-device map
/// may still point at, or whose transfers libusb has not given back, is kept aside instead.
void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Takes a record out of its list and keeps it, closed and out of every list: a late call finds it not open.
void keepRecordAside(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Looks again at what was left undone, without waiting: ends the open state of closed records whose
/// transfers have come back by now, so that their interfaces are free, and deletes the records kept aside
/// that nobody uses any more.
void finishCloses();

/// Cuts a record off from its ending session: transfers, handle and device are given back, the record stays
/// in its list. From here on no call on it reaches libusb. False when some transfer does not come back.
bool severFromSession(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// The same for the records of this list that were kept aside.
bool severKeptAside(const tagUSB_DEVICE_LIST& list);

/// Writes a formatted text into one of a record's string fields, cut at 127 characters.
void formatText(char (&field)[kStringBytes], const char* format, ...) __attribute__((format(printf, 2, 3)));
