// Stand-in for the system's header: only what this library uses, with the system's names, types and values.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

typedef unsigned char Boolean;
typedef std::uint8_t UInt8;
typedef std::uint16_t UInt16;
typedef std::int16_t SInt16;
typedef std::uint32_t UInt32;
typedef std::int32_t SInt32;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef double CFTimeInterval;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFUUID* CFUUIDRef;
typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);

typedef UInt32 CFStringEncoding;
enum : CFStringEncoding { kCFStringEncodingMacRoman = 0, kCFStringEncodingUTF8 = 0x08000100 };

CFStringRef __CFStringMakeConstantString(const char* text);
#ifndef CFSTR
#define CFSTR(text) __CFStringMakeConstantString("" text "")
#endif
CFTypeID CFStringGetTypeID();
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);

typedef CFIndex CFNumberType;
enum : CFNumberType {
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9
};
CFTypeID CFNumberGetTypeID();
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);

typedef struct {
    UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
    UInt8 byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
} CFUUIDBytes;
CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2,
                                         UInt8 byte3, UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                         UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12,
                                         UInt8 byte13, UInt8 byte14, UInt8 byte15);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

typedef SInt32 CFRunLoopRunResult;
enum : CFRunLoopRunResult {
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4
};
extern const CFRunLoopMode kCFRunLoopDefaultMode;
CFRunLoopRef CFRunLoopGetCurrent();
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);
void CFRunLoopStop(CFRunLoopRef loop);

// COM, as plug-ins use it.
typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;
#define IUNKNOWN_C_GUTS                                                \
    void* _reserved;                                                   \
    HRESULT (*QueryInterface)(void* self, REFIID iid, LPVOID* result); \
    ULONG (*AddRef)(void* self);                                       \
    ULONG (*Release)(void* self)

}  // extern "C"
#pragma GCC visibility pop
