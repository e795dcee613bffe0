#pragma once

// Shared by the two macOS HID units: owners of I/O Kit and Core Foundation objects, service matching, and
// access to plug-ins and their interfaces.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitLib.h>

#include <cstdint>
#include <memory>
#include <type_traits>

struct CFReleaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// An owning pointer to a Core Foundation object; may be null.
template <class Ref>
using CFOwned = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

/// Owns an I/O Kit object, or holds IO_OBJECT_NULL.
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
    /// Gives up ownership: somebody else releases the object.
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

/// An owning pointer to a plug-in or to one of its interfaces; may be null.
template <class Interface>
using InterfaceOwned = std::unique_ptr<Interface*, InterfaceReleaser>;

/// Creates the plug-in of this type for a service. Returns null on failure.
inline InterfaceOwned<IOCFPlugInInterface> createPlugIn(const IOOwned& service, CFUUIDRef plugInType) {
    IOCFPlugInInterface** plugIn = nullptr;
    SInt32 score = 0;
    const kern_return_t result =
        IOCreatePlugInInterfaceForService(service.get(), plugInType, kIOCFPlugInInterfaceID, &plugIn, &score);
    return InterfaceOwned<IOCFPlugInInterface>(result == KERN_SUCCESS ? plugIn : nullptr);
}

/// Returns an interface of the plug-in, or null.
template <class Interface>
InterfaceOwned<Interface> queryInterface(const InterfaceOwned<IOCFPlugInInterface>& plugIn,
                                         CFUUIDRef interfaceId) {
    void* interface = nullptr;
    const HRESULT result =
        (*plugIn.get())->QueryInterface(plugIn.get(), CFUUIDGetUUIDBytes(interfaceId), &interface);
    return InterfaceOwned<Interface>(result == 0 ? static_cast<Interface**>(interface) : nullptr);
}

/// A matching dictionary for services of one class.
class ServiceMatch {
 public:
    explicit ServiceMatch(const char* serviceClass) : dictionary_(IOServiceMatching(serviceClass)) {}

    /// False when there is no memory for the dictionary; such a match finds nothing.
    bool isUsable() const { return dictionary_ != nullptr; }

    /// Requires the property to have this value; a null value makes the match find nothing.
    void require(CFStringRef key, CFTypeRef value) {
        if (value == nullptr) {
            dictionary_.reset();
        } else if (dictionary_ != nullptr) {
            CFDictionarySetValue(dictionary_.get(), key, value);
        }
    }
    /// Requires an id, passed as a signed 16-bit number and so negative from 0x8000 on. The system compares
    /// the low 16 bits and matches such ids, too.
    void requireId(CFStringRef key, uint16_t id) {
        require(key,
                CFOwned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberShortType, &id)).get());
    }

    /// Returns the first matching service, or IO_OBJECT_NULL. Consumes the match.
    io_service_t first() {
        return dictionary_ == nullptr
                   ? IO_OBJECT_NULL
                   : IOServiceGetMatchingService(kIOMainPortDefault, dictionary_.release());
    }
    /// Returns an iterator over all matching services, or IO_OBJECT_NULL. Consumes the match.
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
