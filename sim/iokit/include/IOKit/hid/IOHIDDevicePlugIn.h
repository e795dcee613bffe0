// Stand-in for the system's header: only what this library uses, with the system's names, types and values.
#pragma once

#include <IOKit/IOCFPlugIn.h>
#include <IOKit/hid/IOHIDKeys.h>

#pragma GCC visibility push(default)
extern "C" {

/* 7DDEECA8-A7B4-11DA-8A0E-0014519758EF */
#define kIOHIDDeviceTypeID                                                                              \
    CFUUIDGetConstantUUIDWithBytes(nullptr, 0x7D, 0xDE, 0xEC, 0xA8, 0xA7, 0xB4, 0x11, 0xDA, 0x8A, 0x0E, \
                                   0x00, 0x14, 0x51, 0x97, 0x58, 0xEF)
/* 474BDC8E-9F4A-11DA-B366-000D936D06D2 */
#define kIOHIDDeviceDeviceInterfaceID                                                                   \
    CFUUIDGetConstantUUIDWithBytes(nullptr, 0x47, 0x4B, 0xDC, 0x8E, 0x9F, 0x4A, 0x11, 0xDA, 0xB3, 0x66, \
                                   0x00, 0x0D, 0x93, 0x6D, 0x06, 0xD2)

typedef void (*IOHIDReportCallback)(void* context, IOReturn result, void* sender, IOHIDReportType type,
                                    std::uint32_t reportID, std::uint8_t* report, CFIndex reportLength);

typedef struct IOHIDDeviceDeviceInterface {
    IUNKNOWN_C_GUTS;
    IOReturn (*open)(void* self, IOOptionBits options);
    IOReturn (*close)(void* self, IOOptionBits options);
    void* notUsedHere6[2];  // getProperty, setProperty
    IOReturn (*getAsyncEventSource)(void* self, CFTypeRef* pSource);
    void* notUsedHere9[3];  // copyMatchingElements, setValue, getValue
    IOReturn (*setInputReportCallback)(void* self, std::uint8_t* report, CFIndex reportLength,
                                       IOHIDReportCallback callback, void* context, IOOptionBits options);
    IOReturn (*setReport)(void* self, IOHIDReportType reportType, std::uint32_t reportID,
                          const std::uint8_t* report, CFIndex reportLength, std::uint32_t timeout,
                          IOHIDReportCallback callback, void* context, IOOptionBits options);
    void* notUsedHere14;  // getReport
} IOHIDDeviceDeviceInterface;

}  // extern "C"
#pragma GCC visibility pop
