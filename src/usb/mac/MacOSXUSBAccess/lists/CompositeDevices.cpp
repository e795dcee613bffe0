#include "MacOSXUSBAccess/lists/CompositeDevices.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>

#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/LibusbWrappers.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"

namespace {

constexpr uint32_t kMakersVendorIds[] = {0x6A5C, 0x6A5D};
constexpr int32_t kInterfaceDescriptorBytes = 9;
constexpr int32_t kNeededBulkEndpoints = 2;
constexpr uint8_t kExactlyBulk = 2;

/// One interface descriptor of a configuration.
struct FoundInterface {
    DescriptorWalk at;  ///< stands at the interface descriptor
    int32_t number;     ///< number of interface descriptors before it, alternate settings included
};

bool isVendorSpecific(const DescriptorWalk& walk) {
    return walk.byte(5) == LIBUSB_CLASS_VENDOR_SPEC && walk.byte(6) == LIBUSB_CLASS_VENDOR_SPEC;
}

/// True when two bulk endpoints follow in the configuration.
/// Deliberate: endpoints of later interfaces count as well, so such a device is split, too.
bool hasBulkPairFromHere(DescriptorWalk walk) {
    int32_t bulkEndpoints = 0;
    for (walk.advance(); walk.atDescriptor() && bulkEndpoints < kNeededBulkEndpoints; walk.advance()) {
        if (walk.type() == kEndpointDescriptor && walk.byte(3) == kExactlyBulk) {
            ++bulkEndpoints;
        }
    }
    return bulkEndpoints == kNeededBulkEndpoints;
}

/// Finds the interface to split off. Only the first vendor-specific interface after the first interface is
/// tried.
bool findSplitInterface(const tagUSB_DEVICE_ACCESS_ENTRY& parent, FoundInterface& found) {
    int32_t number = 0;
    for (DescriptorWalk walk(parent.configDescriptor, parent.configDescriptorLength); walk.atDescriptor();
         walk.advance()) {
        if (walk.type() != kInterfaceDescriptor) {
            continue;
        }
        const bool candidate = number != 0 && isVendorSpecific(walk);
        if (candidate && walk.remaining() > kInterfaceDescriptorBytes) {
            found = {walk, number};
            return hasBulkPairFromHere(walk);
        }
        ++number;
    }
    return false;
}

bool isSplittable(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const bool makers = std::find(std::begin(kMakersVendorIds), std::end(kMakersVendorIds), entry.idVendor) !=
                        std::end(kMakersVendorIds);
    return makers && entry.pCompositeChild == nullptr;
}

/// Copies to a child what it has in common with its parent, and links the two.
void joinFamily(tagUSB_DEVICE_ACCESS_ENTRY& child, tagUSB_DEVICE_ACCESS_ENTRY& parent, int32_t number) {
    holdDevice(child, parent.pDevice);
    child.idVendor = parent.idVendor;
    child.idProduct = parent.idProduct;
    child.bcdDevice = parent.bcdDevice;
    child.busNumber = parent.busNumber;
    std::memcpy(child.sManufacturer, parent.sManufacturer, kStringBytes);
    std::memcpy(child.sProduct, parent.sProduct, kStringBytes);
    formatText(child.sSerialNumber, "%s_%02X", parent.sSerialNumber, static_cast<unsigned int>(number));
    child.interfaceNumber = number;
    child.deviceDescriptorLength = parent.deviceDescriptorLength;
    std::memcpy(child.deviceDescriptor, parent.deviceDescriptor, kDeviceDescriptorBytes);
    child.familyStatus = kCompositeChild;
    parent.familyStatus = kCompositeParent;
    child.pCompositeParent = &parent;
    parent.pCompositeChild = &child;
}

/// Copies the interface's part of the parent's configuration, up to the next interface. Returns false when it
/// contains a descriptor of length 0.
bool takeSlice(tagUSB_DEVICE_ACCESS_ENTRY& child, const tagUSB_DEVICE_ACCESS_ENTRY& parent,
               const DescriptorWalk& interface) {
    DescriptorWalk end(parent.configDescriptor, parent.configDescriptorLength,
                       interface.offset() + kInterfaceDescriptorBytes);
    while (end.atDescriptor() && end.type() != kInterfaceDescriptor) {
        end.advance();
    }
    if (end.atZeroLength()) {
        return false;
    }
    child.configDescriptorLength = end.offset() - interface.offset();
    std::memcpy(child.configDescriptor, interface.here(), static_cast<size_t>(child.configDescriptorLength));
    return true;
}

void readInterfaceString(tagUSB_DEVICE_ACCESS_ENTRY& child, uint8_t stringIndex) {
    libusb_device_handle* handle = nullptr;
    if (tlvn_libusb_open(&child, child.pDevice, &handle) == LIBUSB_SUCCESS) {
        readString(handle, stringIndex, child.sProduct);
        tlvn_libusb_close(&child, handle);
    }
}

/// Creates the record of the interface that is split off `parent`. Returns null when `parent` is not split.
tagUSB_DEVICE_ACCESS_ENTRY* splitOff(tagUSB_DEVICE_ACCESS_ENTRY& parent) {
    FoundInterface found{{nullptr, 0}, 0};
    if (!isSplittable(parent) || !findSplitInterface(parent, found)) {
        return nullptr;
    }
    tagUSB_DEVICE_ACCESS_ENTRY* child = newDeviceRecord(*parent.pDeviceList);
    joinFamily(*child, parent, found.number);
    if (takeSlice(*child, parent, found.at)) {
        readInterfaceString(*child, found.at.byte(8));
        child->endpointCount =
            setEndpointList(kMaxEndpoints, child->endpoints, found.at.here(), found.at.remaining());
    }
    return child;
}

}  // namespace

uint32_t HandleCompositeDevices(uint32_t handle, tagUSB_DEVICE_LIST* list) {
    tagUSB_DEVICE_ACCESS_ENTRY* firstChild = nullptr;  // the children of this call are not split themselves
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list->pFirst; entry != firstChild; entry = entry->pNext) {
        tagUSB_DEVICE_ACCESS_ENTRY* child = splitOff(*entry);
        appendRecords(*list, child, entry);
        if (firstChild == nullptr) {
            firstChild = child;
        }
    }
    return handle;
}
