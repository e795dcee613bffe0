// Stand-in I/O Kit registry: the HID interfaces and the USB devices of the simulated bus as services.
#include "Registry.h"

#include <map>
#include <mutex>
#include <vector>

#include "Dictionary.h"
#include "Objects.h"
#include "Text.h"

namespace sim {

namespace {

struct Handle {
    Counted counted;
    std::optional<Service> service;
    std::vector<Service> toCome;  // of an iterator, the next one last
};

std::mutex g_mutex;
std::map<io_object_t, Handle> g_handles;

io_object_t newHandle(std::optional<Service> service, std::vector<Service> toCome = {}) {
    static io_object_t last = 0x1000;
    const std::lock_guard lock(g_mutex);
    Handle& handle = g_handles[++last];
    handle.service = std::move(service);
    handle.toCome = std::move(toCome);
    return last;
}

std::uint16_t wordAt(const simbus::Bytes& bytes, std::size_t at) {
    return at + 1 < bytes.size() ? static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8)
                                 : std::uint16_t{0};
}

std::uint8_t byteAt(const simbus::Bytes& bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : std::uint8_t{0};
}

// The property as a new object, or null.
CFTypeRef createProperty(const Service& service, const std::string& key) {
    const simbus::Bytes& descriptor = service.device->deviceDescriptor;
    const bool hid = service.hid.has_value();
    static const std::map<std::string, std::size_t> hidTexts = {
        {"Manufacturer", 14}, {"Product", 15}, {"SerialNumber", 16}};
    if (key == (hid ? "VendorID" : "idVendor")) {
        return createNumber(wordAt(descriptor, 8));
    }
    if (key == (hid ? "ProductID" : "idProduct")) {
        return createNumber(wordAt(descriptor, 10));
    }
    const auto text = hidTexts.find(key);
    if (!hid || text == hidTexts.end()) {
        return nullptr;
    }
    const auto content = readString(*service.device, byteAt(descriptor, text->second));
    return content ? createString(utf8Of(*content)) : nullptr;
}

bool equal(CFTypeRef one, CFTypeRef other) {
    return (textOf(one) && textOf(one) == textOf(other)) ||
           (numberOf(one) && numberOf(one) == numberOf(other));
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

std::vector<Service> servicesOf(const std::string& serviceClass) {
    std::vector<Service> services;
    for (const auto& device : simbus::Bus::instance().devices()) {
        if (serviceClass == "IOUSBDevice") {
            services.push_back({device, std::nullopt});
        } else if (serviceClass == "IOHIDDevice") {
            for (const simbus::HidInterface& interface : device->hidInterfaces) {
                services.push_back({device, interface});
            }
        }
    }
    return services;
}

// The services that match; uses up the program's reference of the dictionary.
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
    const auto found = g_handles.find(object);
    return found == g_handles.end() ? std::nullopt : found->second.service;
}

}  // namespace sim

extern "C" {

const mach_port_t kIOMainPortDefault = 0;

CFMutableDictionaryRef IOServiceMatching(const char* name) {
    SIM_CALL_POINT("IOServiceMatching");
    return fault ? nullptr : sim::referenceTo<CFMutableDictionaryRef>(new sim::Dictionary(name));
}

io_service_t IOServiceGetMatchingService(mach_port_t, CFDictionaryRef matching) {
    SIM_CALL_POINT("IOServiceGetMatchingService");
    const auto found = sim::findServices(matching);
    return fault || found.empty() ? IO_OBJECT_NULL : sim::newHandle(found.front());
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching, io_iterator_t* existing) {
    SIM_CALL_POINT("IOServiceGetMatchingServices");
    auto found = sim::findServices(matching);
    if (fault) {
        *existing = IO_OBJECT_NULL;
        return *fault;
    }
    *existing = sim::newHandle(std::nullopt, {found.rbegin(), found.rend()});
    return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    std::optional<sim::Service> next;
    {
        const std::lock_guard lock(sim::g_mutex);
        const auto found = sim::g_handles.find(iterator);
        if (found == sim::g_handles.end() || found->second.toCome.empty()) {
            return IO_OBJECT_NULL;
        }
        next = found->second.toCome.back();
        found->second.toCome.pop_back();
    }
    return sim::newHandle(next);
}

kern_return_t IOObjectRelease(io_object_t object) {
    const std::lock_guard lock(sim::g_mutex);
    if (sim::g_handles.erase(object) == 0) {
        simbus::Bus::instance().addViolation("IOObjectRelease: no such object");
        return kIOReturnError;
    }
    return KERN_SUCCESS;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef,
                                          IOOptionBits options) {
    SIM_CALL_POINT("IORegistryEntryCreateCFProperty");
    sim::expectNoOptions("IORegistryEntryCreateCFProperty", options);
    const auto service = sim::serviceOf(entry);
    return fault || !service ? nullptr : sim::createProperty(*service, sim::textOf(key).value_or(""));
}

}  // extern "C"
