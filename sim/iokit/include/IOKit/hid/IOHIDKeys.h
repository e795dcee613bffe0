// Stand-in for the system's header: only what this library uses, with the system's names, types and values.
#pragma once

#define kIOHIDDeviceKey "IOHIDDevice"
#define kIOHIDVendorIDKey "VendorID"
#define kIOHIDProductIDKey "ProductID"
#define kIOHIDManufacturerKey "Manufacturer"
#define kIOHIDProductKey "Product"
#define kIOHIDSerialNumberKey "SerialNumber"

#pragma GCC visibility push(default)
extern "C" {

typedef enum IOHIDReportType {
    kIOHIDReportTypeInput = 0,
    kIOHIDReportTypeOutput,
    kIOHIDReportTypeFeature,
    kIOHIDReportTypeCount
} IOHIDReportType;

}  // extern "C"
#pragma GCC visibility pop
