// Stand-in for the system's header: only what this library uses, with the system's names, types and values.
#pragma once

#include <IOKit/IOCFPlugIn.h>

// Since the headers of macOS 10.15 this names the newer class; this registry knows only "IOUSBDevice".
#define kIOUSBDeviceClassName "IOUSBHostDevice"
#define kUSBVendorID "idVendor"
#define kUSBProductID "idProduct"

#pragma GCC visibility push(default)
extern "C" {

/* 9DC7B780-9EC0-11D4-A54F-000A27052861 */
#define kIOUSBDeviceUserClientTypeID                                                                    \
    CFUUIDGetConstantUUIDWithBytes(nullptr, 0x9D, 0xC7, 0xB7, 0x80, 0x9E, 0xC0, 0x11, 0xD4, 0xA5, 0x4F, \
                                   0x00, 0x0A, 0x27, 0x05, 0x28, 0x61)
/* 5C8187D0-9EF3-11D4-8B45-000A27052861 */
#define kIOUSBDeviceInterfaceID                                                                         \
    CFUUIDGetConstantUUIDWithBytes(nullptr, 0x5C, 0x81, 0x87, 0xD0, 0x9E, 0xF3, 0x11, 0xD4, 0x8B, 0x45, \
                                   0x00, 0x0A, 0x27, 0x05, 0x28, 0x61)

#pragma pack(push, 1)
typedef struct IOUSBConfigurationDescriptor {
    UInt8 bLength;
    UInt8 bDescriptorType;
    UInt16 wTotalLength;
    UInt8 bNumInterfaces;
    UInt8 bConfigurationValue;
    UInt8 iConfiguration;
    UInt8 bmAttributes;
    UInt8 MaxPower;
} IOUSBConfigurationDescriptor;
#pragma pack(pop)
typedef IOUSBConfigurationDescriptor* IOUSBConfigurationDescriptorPtr;

typedef struct IOUSBDeviceStruct {
    IUNKNOWN_C_GUTS;
    void* notUsedHere4[15];
    IOReturn (*GetNumberOfConfigurations)(void* self, UInt8* numConfig);
    void* notUsedHere20;  // GetLocationID
    IOReturn (*GetConfigurationDescriptorPtr)(void* self, UInt8 configIndex,
                                              IOUSBConfigurationDescriptorPtr* desc);
} IOUSBDeviceInterface;

}  // extern "C"
#pragma GCC visibility pop
