#pragma once

#include "ground/DeviceRecords.h"

/// How the enumerations of the three list builders differ.
struct EnumerationStyle {
    bool everyVendor;       ///< list every device, not only those whose vendor id is in the list's vidList
    bool tracesSteps;       ///< write the numbered step messages to the debug log
    bool countsReferences;  ///< take a counted reference for each record
    bool readsBusNumber;    ///< fill busNumber; else it stays 0
    bool freesEmptyArray;   ///< free libusb's device array even when it is empty
};

/// Creates a record for each wanted device in the list's context, opens the device briefly to read its
/// strings, descriptors and endpoints, and appends the record to the list; then marks the HID devices. A
/// device whose descriptor cannot be read is skipped; one that cannot be opened is listed as
/// "<cannot_open>VVVV:PPPP". A list without a context stays as it is. Throws std::bad_alloc, leaving some of
/// the records in the list; its creator then undoes the list.
void enumerateDevices(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style);
