#pragma once

#include "MacOSXUSBAccess/records/LibusbWrappers.h"
#include "ground/DeviceRecords.h"

// The life of a record, on the Java callers' threads, which serialise these calls. "Open state" is the handle
// and the 32 transfer records. A HID record has none: its HIDAccess is opened and closed by itself.
//
//   state       isOpen  open state  device  listed  begins with
//   ----------  ------  ----------  ------  ------  --------------------------------------------
//   closed      0       no          yes     yes     newDeviceRecord; endOpenState
//   open        1       yes         yes     yes     LibUSB_OpenDevice
//   replaced    0       yes         yes     yes     an update that finds a new libusb device
//   retired     0       yes         yes     yes     retireRecord, until endOpenState
//   cut off     0       no          no      yes     cutOffRecords, at the end of the session
//   kept aside  0       maybe       maybe   no      deleteDeviceRecord, while it is referred to
//
// Four verbs lead away from open:
//
//   retire   no call begins any more, and those in progress end: retired, or given up after 3 s
//   end      the handle is closed and the transfers are freed: closed
//   cut off  retire, end, and let go of the device: cut off
//   delete   let go of the device and free the record: gone, or kept aside

/// Creates the record of a present device, with the standard packet size and unused endpoints; its other
/// fields are zero. It belongs to `list` but is not linked into it.
tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list);

/// Clears isOpen so that no call can begin, cancels the transfers in flight, and handles events until every
/// callback has run and every thread has left, for at most 3 seconds. Returns true when the record is quiet.
/// After false some transfer still belongs to libusb: the open state stays until a later call of
/// endRetiredRecords or retireRecord finds the record quiet.
bool retireRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Ends the open state of a quiet record: closes the handle, then frees the transfers. The only place that
/// does. Does nothing to a record without an open state.
void endOpenState(tagUSB_DEVICE_ACCESS_ENTRY& entry, HandleClose close = HandleClose::silent);

/// Both, for an open state that no close has ended. Returns false when retireRecord does.
bool retireAndEnd(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Finishes what earlier calls had to leave, without waiting: ends the open state of retired records that are
/// quiet by now, which frees their interfaces, and deletes the records kept aside that nothing refers to.
void endRetiredRecords();

/// Cuts the records of a list, including those kept aside, off from their ending session: no call on them
/// reaches libusb any more. Returns false when a transfer does not complete; its record stays retired.
bool cutOffRecords(tagUSB_DEVICE_LIST& list);

/// Unlinks a record and deletes it. A record that is still retired, that the open-device map may point to, or
/// that a thread is using is kept aside instead, where a late call finds it not open. Does not wait.
void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Formats a text into one of a record's string fields, cut at 127 characters.
void formatText(char (&field)[kStringBytes], const char* format, ...) __attribute__((format(printf, 2, 3)));
