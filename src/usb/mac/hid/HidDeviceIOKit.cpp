// The macOS operations on one HID device: I/O Kit plug-ins and the run loop of the read thread.

#include "hid/HidDeviceIOKit.h"

#include <IOKit/hid/IOHIDDevicePlugIn.h>
#include <IOKit/hid/IOHIDKeys.h>
#include <IOKit/usb/IOUSBLib.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "ground/ResultCodes.h"
#include "hid/IOKitObjects.h"

struct HidDevice {
    InterfaceOwned<IOHIDDeviceDeviceInterface> interface;
    CFRunLoopSourceRef source;  ///< owned by the interface; null until input is started
    HidReportCallback callback;
    void* context;
};

namespace {

// The position of each function used here in the system's tables.
template <class Slot>
constexpr bool isSlot(size_t offset, Slot number) {
    return offset == static_cast<size_t>(number) * sizeof(void*);
}
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, QueryInterface), 1));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, Release), 3));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, open), 4));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, close), 5));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, getAsyncEventSource), 8));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, setInputReportCallback), 12));
static_assert(isSlot(offsetof(IOHIDDeviceDeviceInterface, setReport), 13));
static_assert(isSlot(offsetof(IOUSBDeviceInterface, Release), 3));
static_assert(isSlot(offsetof(IOUSBDeviceInterface, GetNumberOfConfigurations), 19));
static_assert(isSlot(offsetof(IOUSBDeviceInterface, GetConfigurationDescriptorPtr), 21));
static_assert(kIOHIDReportTypeOutput == 1 && kCFRunLoopRunStopped == 2);

constexpr CFTimeInterval kPeriodSeconds = 0.0005;

CFOwned<CFStringRef> serialText(const char* serialNumber) {
    return CFOwned<CFStringRef>(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(serialNumber),
        static_cast<CFIndex>(std::strlen(serialNumber)), kCFStringEncodingMacRoman, false));
}

io_service_t findHidService(uint16_t vendorId, uint16_t productId, const char* serialNumber) {
    ServiceMatch match(kIOHIDDeviceKey);
    if (!match.isUsable()) {
        return IO_OBJECT_NULL;
    }
    const CFOwned<CFStringRef> serial = serialText(serialNumber);
    match.requireId(CFSTR(kIOHIDVendorIDKey), vendorId);
    match.requireId(CFSTR(kIOHIDProductIDKey), productId);
    if (std::strcmp(serialNumber, "?") != 0) {
        match.require(CFSTR(kIOHIDSerialNumberKey), serial.get());
    }
    return match.first();
}

HidOpenResult openDevice(uint16_t vendorId, uint16_t productId, const char* serialNumber,
                         HidDevice** device) {
    *device = nullptr;
    InterfaceOwned<IOHIDDeviceDeviceInterface> interface;
    {
        InterfaceOwned<IOCFPlugInInterface> plugIn;
        const IOOwned service(findHidService(vendorId, productId, serialNumber));
        if (service) {
            plugIn = createPlugIn(service, kIOHIDDeviceTypeID);
        }
        if (plugIn == nullptr) {
            return HidOpenResult::notFound;
        }
        interface = queryInterface<IOHIDDeviceDeviceInterface>(plugIn, kIOHIDDeviceDeviceInterfaceID);
    }
    if (interface == nullptr || (*interface.get())->open(interface.get(), 0) != kIOReturnSuccess) {
        return HidOpenResult::notOpenable;
    }
    *device = new (std::nothrow) HidDevice{};
    if (*device == nullptr) {
        (*interface.get())->close(interface.get(), 0);
        return HidOpenResult::notOpenable;
    }
    (*device)->interface = std::move(interface);
    return HidOpenResult::opened;
}

void closeDevice(HidDevice* device) {
    IOHIDDeviceDeviceInterface** interface = device->interface.get();
    (*interface)->close(interface, 0);
    delete device;
}

/// Forwards the report; `result`, the type and the id are not needed.
void reportArrived(void* context, IOReturn /*result*/, void* /*sender*/, IOHIDReportType /*type*/,
                   uint32_t /*reportId*/, uint8_t* report, CFIndex length) {
    const HidDevice& device = *static_cast<HidDevice*>(context);
    device.callback(device.context, report, static_cast<int32_t>(length));
}

bool startInput(HidDevice* device, uint8_t* buffer, int32_t length, HidReportCallback callback,
                void* context) {
    IOHIDDeviceDeviceInterface** interface = device->interface.get();
    CFTypeRef source = nullptr;
    if ((*interface)->getAsyncEventSource(interface, &source) != kIOReturnSuccess || source == nullptr) {
        return false;
    }
    device->callback = callback;
    device->context = context;
    if ((*interface)->setInputReportCallback(interface, buffer, length, reportArrived, device, 0) !=
        kIOReturnSuccess) {
        return false;
    }
    device->source = static_cast<CFRunLoopSourceRef>(const_cast<void*>(source));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), device->source, kCFRunLoopDefaultMode);
    return true;
}

bool runPeriod(HidDevice* /*device*/) {
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, kPeriodSeconds, false) != kCFRunLoopRunStopped;
}

void stopInput(HidDevice* device) {
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), device->source, kCFRunLoopDefaultMode);
}

void stopCallersLoop() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

/// Without a callback, setReport returns after the report was sent and ignores the time-out: the device's
/// driver determines how long that may take.
bool sendReport(HidDevice* device, const uint8_t* report, int32_t length, int32_t timeoutMs) {
    IOHIDDeviceDeviceInterface** interface = device->interface.get();
    return (*interface)
               ->setReport(interface, kIOHIDReportTypeOutput, 0, report, length,
                           static_cast<uint32_t>(timeoutMs), nullptr, nullptr, 0) == kIOReturnSuccess;
}

/// Deliberate: the serial number is not matched; with two devices of the same ids it may be either's
/// descriptor.
///
/// Ownership of the service: the plug-in holds a reference of its own. A query for an interface with an id
/// below 245, such as this one, releases that reference at once, yet the interface releases one at its end as
/// well: the caller's. So a successful query takes over the caller's reference; without a plug-in or an
/// interface the caller releases it. One release too many would take the service from libusb, which uses the
/// same port name.
InterfaceOwned<IOUSBDeviceInterface> findUsbDevice(uint16_t vendorId, uint16_t productId) {
    // Since the headers of macOS 10.15, kIOUSBDeviceClassName names another class, IOUSBHostDevice.
    ServiceMatch match("IOUSBDevice");
    match.requireId(CFSTR(kUSBVendorID), vendorId);
    match.requireId(CFSTR(kUSBProductID), productId);
    IOOwned service(match.first());
    if (!service) {
        return nullptr;
    }
    const InterfaceOwned<IOCFPlugInInterface> plugIn = createPlugIn(service, kIOUSBDeviceUserClientTypeID);
    if (plugIn == nullptr) {
        return nullptr;
    }
    auto device = queryInterface<IOUSBDeviceInterface>(plugIn, kIOUSBDeviceInterfaceID);
    if (device != nullptr) {
        service.giveAway();
    }
    return device;
}

int32_t readConfigDescriptor(uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size) {
    const InterfaceOwned<IOUSBDeviceInterface> owned = findUsbDevice(vendorId, productId);
    IOUSBDeviceInterface** device = owned.get();
    UInt8 configurations = 0;
    IOUSBConfigurationDescriptorPtr descriptor = nullptr;
    if (device == nullptr ||
        (*device)->GetNumberOfConfigurations(device, &configurations) != kIOReturnSuccess ||
        configurations == 0 ||
        (*device)->GetConfigurationDescriptorPtr(device, 0, &descriptor) != kIOReturnSuccess ||
        descriptor == nullptr) {
        return kNotAvailable;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(descriptor);
    const int32_t count = std::min(bytes[2] | bytes[3] << 8, size);
    std::memcpy(buffer, bytes, static_cast<size_t>(std::max(count, 0)));
    return count;
}

}  // namespace

HidDeviceOperations ioKitOperations(bool (*list)(std::vector<HidDeviceInfo>& devices)) {
    return {list,      openDevice,      closeDevice, startInput,          runPeriod,
            stopInput, stopCallersLoop, sendReport,  readConfigDescriptor};
}
