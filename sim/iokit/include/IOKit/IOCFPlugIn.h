// Stand-in for the system's header: only what this library uses, with the system's names, types and values.
#pragma once

#include <IOKit/IOKitLib.h>

#pragma GCC visibility push(default)
extern "C" {

/* C244E858-109C-11D4-91D4-0050E4C6426F */
#define kIOCFPlugInInterfaceID                                                                          \
    CFUUIDGetConstantUUIDWithBytes(nullptr, 0xC2, 0x44, 0xE8, 0x58, 0x10, 0x9C, 0x11, 0xD4, 0x91, 0xD4, \
                                   0x00, 0x50, 0xE4, 0xC6, 0x42, 0x6F)

typedef struct IOCFPlugInInterfaceStruct {
    IUNKNOWN_C_GUTS;
    UInt16 version;
    UInt16 revision;
    void* notUsedHere[3];  // Probe, Start, Stop
} IOCFPlugInInterface;

kern_return_t IOCreatePlugInInterfaceForService(io_service_t service, CFUUIDRef pluginType,
                                                CFUUIDRef interfaceType, IOCFPlugInInterface*** theInterface,
                                                SInt32* theScore);

}  // extern "C"
#pragma GCC visibility pop
