#pragma once

// What both HID units of macOS need to hold I/O Kit and Core Foundation objects: owners that give back what
// they hold, and the ways to a service and to a plug-in's interface.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitLib.h>

#include <cstdint>
#include <memory>
#include <type_traits>

struct CFReleaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// A Core Foundation object that the holder owns, or null.
template <class Ref>
using CFOwned = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

/// An I/O Kit object that the holder owns, or IO_OBJECT_NULL.
class IOOwned {
 public:
    explicit IOOwned(io_object_t object) : object_(object) {}
    ~IOOwned() {
        if (object_ != IO_OBJECT_NULL) {
            IOObjectRelease(object_);
        }
    }
    IOOwned(const IOOwned&) = delete;
    IOOwned& operator=(const IOOwned&) = delete;

    io_object_t get() const { return object_; }
    explicit operator bool() const { return object_ != IO_OBJECT_NULL; }
    /// Somebody else releases the object from now on.
    void giveAway() { object_ = IO_OBJECT_NULL; }

 private:
    io_object_t object_;
};

struct InterfaceReleaser {
    template <class Interface>
    void operator()(Interface** interface) const {
        (*interface)->Release(interface);
    }
};

/// A plug-in, or an interface of one, that the holder owns, or null.
template <class Interface>
using InterfaceOwned = std::unique_ptr<Interface*, InterfaceReleaser>;

/// The plug-in of this type that drives a service, or null.
inline InterfaceOwned<IOCFPlugInInterface> createPlugIn(const IOOwned& service, CFUUIDRef plugInType) {
    IOCFPlugInInterface** plugIn = nullptr;
    SInt32 score = 0;
    const kern_return_t result =
        IOCreatePlugInInterfaceForService(service.get(), plugInType, kIOCFPlugInInterfaceID, &plugIn, &score);
    return InterfaceOwned<IOCFPlugInInterface>(result == KERN_SUCCESS ? plugIn : nullptr);
}

/// An interface of the plug-in, or null.
template <class Interface>
InterfaceOwned<Interface> queryInterface(const InterfaceOwned<IOCFPlugInInterface>& plugIn,
                                         CFUUIDRef interfaceId) {
    void* interface = nullptr;
    const HRESULT result =
        (*plugIn.get())->QueryInterface(plugIn.get(), CFUUIDGetUUIDBytes(interfaceId), &interface);
    return InterfaceOwned<Interface>(result == 0 ? static_cast<Interface**>(interface) : nullptr);
}

/// What services of a class are looked for by.
class ServiceMatch {
 public:
    explicit ServiceMatch(const char* serviceClass) : dictionary_(IOServiceMatching(serviceClass)) {}

    /// False when there is no memory for it; such a match finds nothing.
    bool isUsable() const { return dictionary_ != nullptr; }

    /// The property must have this value; null ends the match.
    void require(CFStringRef key, CFTypeRef value) {
        if (value == nullptr) {
            dictionary_.reset();
        } else if (dictionary_ != nullptr) {
            CFDictionarySetValue(dictionary_.get(), key, value);
        }
    }
    /// The number goes in as a signed 16-bit one, and is a negative one from 0x8000 on. The system compares
    /// the low 16 bits, so it finds services of such ids, too.
    void requireId(CFStringRef key, uint16_t id) {
        require(key,
                CFOwned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberShortType, &id)).get());
    }

    /// The first service that matches, or IO_OBJECT_NULL. The match is used up.
    io_service_t first() {
        return dictionary_ == nullptr
                   ? IO_OBJECT_NULL
                   : IOServiceGetMatchingService(kIOMainPortDefault, dictionary_.release());
    }
    /// All services that match: an iterator, or IO_OBJECT_NULL. The match is used up.
    io_iterator_t all() {
        io_iterator_t services = IO_OBJECT_NULL;
        const bool found =
            dictionary_ != nullptr && IOServiceGetMatchingServices(kIOMainPortDefault, dictionary_.release(),
                                                                   &services) == KERN_SUCCESS;
        return found ? services : IO_OBJECT_NULL;
    }

 private:
    CFOwned<CFMutableDictionaryRef> dictionary_;
};
