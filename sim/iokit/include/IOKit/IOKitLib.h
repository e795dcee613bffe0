// Stand-in for the system's header: only what this library and its tests use, with the system's names, types
// and values.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#pragma GCC visibility push(default)
extern "C" {

typedef int kern_return_t;
typedef kern_return_t IOReturn;
typedef unsigned int mach_port_t;
typedef mach_port_t io_object_t;
typedef io_object_t io_service_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef UInt32 IOOptionBits;

#define KERN_SUCCESS 0
#define kIOReturnSuccess KERN_SUCCESS
#define kIOReturnError static_cast<IOReturn>(0xE00002BC)
#define kIOReturnNoDevice static_cast<IOReturn>(0xE00002C0)
#define kIOReturnNotOpen static_cast<IOReturn>(0xE00002CD)
#define IO_OBJECT_NULL static_cast<io_object_t>(0)

extern const mach_port_t kIOMainPortDefault;

CFMutableDictionaryRef IOServiceMatching(const char* name);
/// Both consume a reference on the dictionary.
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                           io_iterator_t* existing);
io_object_t IOIteratorNext(io_iterator_t iterator);
kern_return_t IOObjectRetain(io_object_t object);
kern_return_t IOObjectRelease(io_object_t object);
/// The number of references that this program has on the object.
std::uint32_t IOObjectGetUserRetainCount(io_object_t object);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

}  // extern "C"
#pragma GCC visibility pop
