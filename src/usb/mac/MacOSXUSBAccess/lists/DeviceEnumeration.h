#pragma once

#include "ground/DeviceRecords.h"

/// What the three list builders do differently on the one way through libusb's devices.
struct EnumerationStyle {
    bool everyVendor;       ///< list every device; else those whose vendor id stands in the list's vidList
    bool tracesSteps;       ///< write the numbered step messages to the debug log
    bool countsReferences;  ///< take a counted reference for each record
    bool readsBusNumber;    ///< fill busNumber; else it stays 0
    bool freesEmptyArray;   ///< give an empty device array back to libusb, too
};

/// Makes a record of each wanted device in the list's context, opens each one briefly to read its strings,
/// descriptors and endpoints, and appends it to the list; then marks the HID devices. A device whose
/// descriptor cannot be read is left out; one that cannot be opened is listed as "<cannot_open>VVVV:PPPP". A
/// list without a context stays as it is. Throws std::bad_alloc; the list then has some of its records, and
/// its maker takes it back.
void enumerateDevices(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style);
