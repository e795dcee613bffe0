#include "HidHandling/HidDetection.h"

#include <vector>

#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"

namespace {

constexpr uint32_t kHidPacketSize = 64;
constexpr uint32_t kHidFillValue = 0x5A;
/// Ids are read as signed 16-bit numbers; a larger id counts as missing.
constexpr int32_t kLargestReadableId = 0x7FFF;

bool isReadable(const std::optional<int32_t>& id) {
    return id.has_value() && *id >= 0 && *id <= kLargestReadableId;
}

tagUSB_DEVICE_ACCESS_ENTRY* findUnmarked(const tagUSB_DEVICE_LIST& list, const HidDeviceInfo& device) {
    if (!isReadable(device.vendorId) || !isReadable(device.productId) || !device.serialNumber.has_value()) {
        return nullptr;
    }
    tagUSB_DEVICE_ACCESS_ENTRY* entry = list.pFirst;
    const auto matches = [&] {
        return entry->idVendor == static_cast<uint32_t>(*device.vendorId) &&
               entry->idProduct == static_cast<uint32_t>(*device.productId) && entry->isHid == 0 &&
               *device.serialNumber == entry->sSerialNumber;
    };
    while (entry != nullptr && !matches()) {
        entry = entry->pNext;
    }
    return entry;
}

void mark(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (entry.pHIDAccess == nullptr) {
        entry.pHIDAccess =
            newHIDAccess(static_cast<uint16_t>(entry.idVendor), static_cast<uint16_t>(entry.idProduct),
                         entry.sSerialNumber, kHidPacketSize, kHidFillValue);
    }
    entry.isHid = 1;
    entry.packetSize = kHidPacketSize;
    entry.exPacketSize = kHidPacketSize;
    entry.fillValue = kHidFillValue;
}

/// Returns false when the configuration cannot be read, or has a descriptor of length 0 before its first
/// interface.
/// Deliberate: a configuration without an interface leaves the endpoint list unchanged.
bool rebuildConfiguration(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const int32_t count = fillConfigBuffer(&entry, entry.configDescriptor, kConfigDescriptorBytes);
    if (count < 0) {
        return false;
    }
    entry.configDescriptorLength = count;
    DescriptorWalk walk(entry.configDescriptor, count);
    while (walk.atDescriptor() && walk.type() != kInterfaceDescriptor) {
        walk.advance();
    }
    if (walk.atDescriptor()) {
        if (classLeftToInterfaces(entry) && !inClassList(walk.byte(5), kInterfaceClass)) {
            entry.isUnsupportedClass = 1;
        }
        entry.endpointCount = setEndpointList(kMaxEndpoints, entry.endpoints, walk.here(), walk.remaining());
    }
    return !walk.atZeroLength();
}

/// Sets the libusb context that the platform may use, for the lifetime of this object.
class HidUsbContext {
 public:
    explicit HidUsbContext(libusb_context* context) { setHidUsbContext(context); }
    ~HidUsbContext() { setHidUsbContext(nullptr); }
    HidUsbContext(const HidUsbContext&) = delete;
    HidUsbContext& operator=(const HidUsbContext&) = delete;
};

}  // namespace

int32_t HID_MarkHidDevicesInList(tagUSB_DEVICE_LIST* list) {
    std::vector<HidDeviceInfo> devices;
    if (!hidOperations().list(devices)) {
        return 0;
    }
    const HidUsbContext context(list->pContext);
    for (const HidDeviceInfo& device : devices) {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = findUnmarked(*list, device);
        if (entry == nullptr) {
            continue;
        }
        mark(*entry);
        if (!rebuildConfiguration(*entry)) {
            clearConfiguration(*entry);
        }
    }
    return 1;
}
