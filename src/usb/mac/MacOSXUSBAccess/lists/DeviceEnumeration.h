#pragma once

#include "ground/DeviceRecords.h"

/// How the enumerations of the three list builders differ.
struct EnumerationStyle {
    bool everyVendor;  ///< list every device, not only those whose vendor id is in the list's vidList
    /// The list is watched for hotplug events: write the numbered step messages to the debug log, take a
    /// counted reference for each record, and fill busNumber, which else stays 0.
    /// Deliberate: an empty device array of libusb is not freed then, so a call on an empty bus leaks a few
    /// bytes.
    bool isWatched;
};

/// Creates a record for each wanted device in the list's context, opens the device briefly to read its
/// strings, descriptors and endpoints, and appends the record to the list; then marks the HID devices. A
/// device whose descriptor cannot be read is skipped; one that cannot be opened is listed as
/// "<cannot_open>VVVV:PPPP". A list without a context stays as it is. Throws std::bad_alloc, leaving some of
/// the records in the list; its creator then undoes the list.
void enumerateDevices(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style);
