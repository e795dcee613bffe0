// Stand-in I/O Kit registry: the HID interfaces and the USB devices of the simulated bus as services.
#include "Registry.h"

#include <map>
#include <mutex>
#include <vector>

#include "Dictionary.h"
#include "Forever.h"
#include "HostRequests.h"
#include "Objects.h"
#include "Text.h"

namespace sim {

namespace {

struct Handle {
    Counted counted;
    std::uint32_t references = 1;
    std::optional<Service> service;
    std::vector<Service> toCome;  // of an iterator; the next one is last
};

std::mutex g_mutex;
std::map<io_object_t, Handle> g_handles;

/// With g_mutex held.
io_object_t newHandle(std::optional<Service> service, std::vector<Service> toCome) {
    static io_object_t last = 0x1000;
    Handle& handle = g_handles[++last];
    handle.service = std::move(service);
    handle.toCome = std::move(toCome);
    return last;
}

io_iterator_t newIterator(std::vector<Service> services) {
    const std::lock_guard lock(g_mutex);
    return newHandle(std::nullopt, std::move(services));
}

bool areSame(const Service& one, const Service& other) {
    return one.device->connection == other.device->connection &&
           one.hid.has_value() == other.hid.has_value() && (!one.hid || one.hid->number == other.hid->number);
}

/// A program sees a service under one name, however often it asks for it; each time adds a reference.
io_service_t referTo(const Service& service) {
    const std::lock_guard lock(g_mutex);
    for (auto& [name, handle] : g_handles) {
        if (handle.service && areSame(*handle.service, service)) {
            ++handle.references;
            return name;
        }
    }
    return newHandle(service, {});
}

/// Returns the handle with this name, or null. g_mutex is held.
Handle* find(io_object_t object) {
    const auto found = g_handles.find(object);
    return found == g_handles.end() ? nullptr : &found->second;
}
/// The same for a function that requires one: null is recorded as a violation of its caller.
Handle* find(io_object_t object, const char* function) {
    Handle* handle = find(object);
    if (handle == nullptr) {
        simbus::Bus::instance().addViolation(std::string(function) + ": no such object");
    }
    return handle;
}

std::uint16_t wordAt(const simbus::Bytes& bytes, std::size_t at) {
    return at + 1 < bytes.size() ? static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8)
                                 : std::uint16_t{0};
}

std::uint8_t byteAt(const simbus::Bytes& bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : std::uint8_t{0};
}

/// Creates an object for the property, or returns null.
CFTypeRef createProperty(const Service& service, const std::string& key) {
    const simbus::Bytes& descriptor = service.device->deviceDescriptor;
    const bool hid = service.hid.has_value();
    static const auto* const hidTexts = simbus::forever(
        std::map<std::string, std::size_t>{{"Manufacturer", 14}, {"Product", 15}, {"SerialNumber", 16}});
    if (key == (hid ? "VendorID" : "idVendor")) {
        return createNumber(wordAt(descriptor, 8));
    }
    if (key == (hid ? "ProductID" : "idProduct")) {
        return createNumber(wordAt(descriptor, 10));
    }
    const auto text = hidTexts->find(key);
    if (!hid || text == hidTexts->end()) {
        return nullptr;
    }
    const auto content = simbus::readString(*service.device, byteAt(descriptor, text->second));
    return content ? createString(utf8Of(*content)) : nullptr;
}

/// The system compares only the low 16 bits of numbers.
bool equal(CFTypeRef one, CFTypeRef other) {
    constexpr std::int64_t kCompared = 0xFFFF;
    return (textOf(one) && textOf(one) == textOf(other)) ||
           (numberOf(one) && numberOf(other) && ((*numberOf(one) ^ *numberOf(other)) & kCompared) == 0);
}

bool matches(const Service& service, const Dictionary& wanted) {
    for (const auto& [key, value] : wanted.values) {
        CFTypeRef property = createProperty(service, key);
        const bool same = property != nullptr && equal(property, value);
        if (property != nullptr) {
            CFRelease(property);
        }
        if (!same) {
            return false;
        }
    }
    return true;
}

/// A device is on the bus before its HID driver has registered. A test delays that by making this call fail.
bool hasRegistered() {
    SIM_CALL_POINT("hid driver registered");
    return !fault;
}

std::vector<Service> servicesOf(const std::string& serviceClass) {
    std::vector<Service> services;
    for (const auto& device : simbus::Bus::instance().devices()) {
        if (serviceClass == "IOUSBDevice") {
            services.push_back({device, std::nullopt});
        } else if (serviceClass == "IOHIDDevice") {
            for (const simbus::HidInterface& interface : device->hidInterfaces) {
                if (hasRegistered()) {
                    services.push_back({device, interface});
                }
            }
        }
    }
    return services;
}

/// Returns the matching services; consumes the program's reference on the dictionary.
std::vector<Service> findServices(CFDictionaryRef matching) {
    const auto& wanted = *static_cast<Dictionary*>(objectOf(matching));
    std::vector<Service> found;
    for (const Service& service : servicesOf(wanted.serviceClass)) {
        if (matches(service, wanted)) {
            found.push_back(service);
        }
    }
    CFRelease(matching);
    return found;
}

}  // namespace

std::optional<Service> serviceOf(io_object_t object) {
    const std::lock_guard lock(g_mutex);
    const Handle* handle = find(object);
    return handle == nullptr ? std::nullopt : handle->service;
}

}  // namespace sim

extern "C" {

const mach_port_t kIOMainPortDefault = 0;

CFMutableDictionaryRef IOServiceMatching(const char* name) {
    SIM_CALL_POINT(__func__);
    return fault ? nullptr : sim::referenceTo<CFMutableDictionaryRef>(new sim::Dictionary(name));
}

io_service_t IOServiceGetMatchingService(mach_port_t, CFDictionaryRef matching) {
    SIM_CALL_POINT(__func__);
    const auto found = sim::findServices(matching);
    return fault || found.empty() ? IO_OBJECT_NULL : sim::referTo(found.front());
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching, io_iterator_t* existing) {
    SIM_CALL_POINT(__func__);
    auto found = sim::findServices(matching);
    if (fault) {
        *existing = IO_OBJECT_NULL;
        return *fault;
    }
    *existing = sim::newIterator({found.rbegin(), found.rend()});
    return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    std::optional<sim::Service> next;
    {
        const std::lock_guard lock(sim::g_mutex);
        sim::Handle* handle = sim::find(iterator);
        if (handle == nullptr || handle->toCome.empty()) {
            return IO_OBJECT_NULL;
        }
        next = handle->toCome.back();
        handle->toCome.pop_back();
    }
    return sim::referTo(*next);
}

kern_return_t IOObjectRetain(io_object_t object) {
    const std::lock_guard lock(sim::g_mutex);
    sim::Handle* handle = sim::find(object, "IOObjectRetain");
    if (handle == nullptr) {
        return kIOReturnError;
    }
    ++handle->references;
    return KERN_SUCCESS;
}

kern_return_t IOObjectRelease(io_object_t object) {
    const std::lock_guard lock(sim::g_mutex);
    sim::Handle* handle = sim::find(object, "IOObjectRelease");
    if (handle == nullptr) {
        return kIOReturnError;
    }
    if (--handle->references == 0) {
        sim::g_handles.erase(object);
    }
    return KERN_SUCCESS;
}

std::uint32_t IOObjectGetUserRetainCount(io_object_t object) {
    const std::lock_guard lock(sim::g_mutex);
    const sim::Handle* handle = sim::find(object);
    return handle == nullptr ? 0 : handle->references;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef,
                                          IOOptionBits options) {
    SIM_CALL_POINT(__func__);
    sim::expectNoOptions("IORegistryEntryCreateCFProperty", options);
    const auto service = sim::serviceOf(entry);
    return fault || !service ? nullptr : sim::createProperty(*service, sim::textOf(key).value_or(""));
}

}  // extern "C"
