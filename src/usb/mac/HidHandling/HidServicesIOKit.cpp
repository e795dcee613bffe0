// Lists the HID devices of macOS: services of the I/O Kit registry and their properties.

#include "HidHandling/HidServicesIOKit.h"

#include <IOKit/hid/IOHIDKeys.h>

#include <cstring>

#include "hid/HidDeviceIOKit.h"
#include "hid/IOKitObjects.h"

namespace {

CFOwned<CFTypeRef> propertyOf(io_service_t service, CFStringRef key) {
    return CFOwned<CFTypeRef>(IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0));
}

std::optional<int32_t> idOf(io_service_t service, CFStringRef key) {
    int16_t id = 0;
    return GetIntProperty(service, key, &id) == 0 ? std::optional<int32_t>(id) : std::nullopt;
}

std::optional<std::string> textOf(io_service_t service, CFStringRef key) {
    char text[kStringBytes];
    return GetStringProperty(service, key, text) == 0 ? std::optional<std::string>(text) : std::nullopt;
}

bool listDevices(std::vector<HidDeviceInfo>& devices) {
    const IOOwned services(ServiceMatch(kIOHIDDeviceKey).all());
    if (!services) {
        return false;
    }
    for (io_service_t next = IOIteratorNext(services.get()); next != IO_OBJECT_NULL;
         next = IOIteratorNext(services.get())) {
        const IOOwned service(next);
        devices.push_back({idOf(next, CFSTR(kIOHIDVendorIDKey)), idOf(next, CFSTR(kIOHIDProductIDKey)),
                           textOf(next, CFSTR(kIOHIDManufacturerKey)), textOf(next, CFSTR(kIOHIDProductKey)),
                           textOf(next, CFSTR(kIOHIDSerialNumberKey))});
    }
    return true;
}

}  // namespace

int GetIntProperty(io_service_t service, CFStringRef key, int16_t* value) {
    const CFOwned<CFTypeRef> property = propertyOf(service, key);
    if (property == nullptr || CFGetTypeID(property.get()) != CFNumberGetTypeID()) {
        return -1;
    }
    int16_t number = 0;
    const bool read =
        CFNumberGetValue(static_cast<CFNumberRef>(property.get()), kCFNumberSInt16Type, &number) != 0;
    // For 0x8000 to 0xFFFF the system reports success and returns a negative number.
    if (!read || number < 0) {
        return -1;
    }
    *value = number;
    return 0;
}

int GetStringProperty(io_service_t service, CFStringRef key, char* text) {
    const CFOwned<CFTypeRef> property = propertyOf(service, key);
    if (property == nullptr || CFGetTypeID(property.get()) != CFStringGetTypeID()) {
        std::memcpy(text, "?", sizeof "?");
        return -1;
    }
    if (!CFStringGetCString(static_cast<CFStringRef>(property.get()), text, kStringBytes,
                            kCFStringEncodingUTF8)) {
        text[0] = '\0';
    }
    return 0;
}

const HidDeviceOperations& platformHidOperations() {
    static const HidDeviceOperations operations = ioKitOperations(listDevices);
    return operations;
}
