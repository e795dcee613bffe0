#include "MacOSXUSBAccess/lists/DeviceEnumeration.h"

#include <libusb.h>

#include "DebugUtil/DebugLog.h"
#include "HidHandling/HidDetection.h"
#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/LibusbWrappers.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "ground/ResultCodes.h"

namespace {

/// Writes the numbered step messages of a traced enumeration to the debug log.
class StepTrace {
 public:
    explicit StepTrace(bool on) : on_(on) {}
    void step(const char* label) const {
        if (on_) {
            DN_WriteStr(label, 1);
        }
    }
    /// A negative value prints as the unsigned number with the same bits.
    void number(const char* label, int32_t value) const {
        if (on_) {
            DN_WriteStrUInt(label, static_cast<uint32_t>(value), 1);
        }
    }
    void text(const char* label, const char* value) const {
        if (on_) {
            DN_WriteStrStr(label, value, 1);
        }
    }

 private:
    bool on_;
};

bool isWanted(const tagUSB_DEVICE_LIST& list, const EnumerationStyle& style, uint16_t vendorId) {
    // Unused slots are -1, which equals no vendor id.
    return style.everyVendor || deviceListContainsVID(&list, vendorId);
}

void fillIdentity(tagUSB_DEVICE_ACCESS_ENTRY& entry, const libusb_device_descriptor& descriptor,
                  const StepTrace& trace) {
    entry.idVendor = descriptor.idVendor;
    trace.number("LibUSB_CreateDeviceList2 05: idVendor", descriptor.idVendor);
    entry.idProduct = descriptor.idProduct;
    trace.number("LibUSB_CreateDeviceList2 06: idProduct", descriptor.idProduct);
    entry.bcdDevice = descriptor.bcdDevice;
    formatText(entry.sManufacturer, "?");
    formatText(entry.sProduct, "?");
    formatText(entry.sSerialNumber, "?");
}

void readStrings(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device_handle* handle,
                 const libusb_device_descriptor& descriptor, const StepTrace& trace) {
    trace.step("LibUSB_CreateDeviceList2 07");
    readString(handle, descriptor.iManufacturer, entry.sManufacturer);
    trace.text("LibUSB_CreateDeviceList2 08", entry.sManufacturer);
    readString(handle, descriptor.iProduct, entry.sProduct);
    trace.text("LibUSB_CreateDeviceList2 09", entry.sProduct);
    readString(handle, descriptor.iSerialNumber, entry.sSerialNumber);
    trace.text("LibUSB_CreateDeviceList2 10", entry.sSerialNumber);
}

void readDeviceDescriptor(tagUSB_DEVICE_ACCESS_ENTRY& entry, const StepTrace& trace) {
    const int32_t count = fillDevDescBuffer(&entry, entry.deviceDescriptor, kStandardDeviceDescriptorBytes);
    if (count != kStandardDeviceDescriptorBytes) {
        trace.number("LibUSB_CreateDeviceList2 11: res", kNotAvailable);
        return;
    }
    trace.number("LibUSB_CreateDeviceList2 11: res", count);
    entry.deviceDescriptorLength = count;
    if (!inClassList(entry.deviceDescriptor[4], 0)) {
        trace.step("LibUSB_CreateDeviceList2 12");
        entry.isUnsupportedClass = 1;
    }
}

/// Checks the class and reads the endpoints of the first interface, at whose descriptor the walk stands.
void readFirstInterface(tagUSB_DEVICE_ACCESS_ENTRY& entry, const DescriptorWalk& walk,
                        const StepTrace& trace) {
    if (entry.deviceDescriptorLength >= 5) {
        trace.step("LibUSB_CreateDeviceList2 15");
        if (classLeftToInterfaces(entry)) {
            trace.step("LibUSB_CreateDeviceList2 16");
            if (!inClassList(walk.byte(5), kInterfaceClass)) {
                trace.step("LibUSB_CreateDeviceList2 17");
                entry.isUnsupportedClass = 1;
            }
        }
    }
    entry.endpointCount = setEndpointList(kMaxEndpoints, entry.endpoints, walk.here(), walk.remaining());
    trace.step("LibUSB_CreateDeviceList2 18");
}

/// Returns false when the configuration is missing or malformed; the caller then clears it.
bool readConfiguration(tagUSB_DEVICE_ACCESS_ENTRY& entry, const StepTrace& trace) {
    const int32_t count = fillConfigBuffer(&entry, entry.configDescriptor, kConfigDescriptorBytes);
    trace.number("LibUSB_CreateDeviceList2 13: cdCnt", count);
    if (count < 1) {
        trace.step("LibUSB_CreateDeviceList2 19a");
        return false;
    }
    entry.configDescriptorLength = count;
    for (DescriptorWalk walk(entry.configDescriptor, count); !walk.atEnd(); walk.advance()) {
        trace.number("LibUSB_CreateDeviceList2 14 : ii", walk.offset());
        if (walk.atZeroLength()) {
            return false;
        }
        if (walk.type() == kInterfaceDescriptor) {
            readFirstInterface(entry, walk, trace);
            return true;
        }
    }
    return true;  // a configuration without an interface stays, with no endpoints
}

/// Reads strings and descriptors from the open device and closes it.
void readDevice(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device_handle* handle,
                const libusb_device_descriptor& descriptor, const StepTrace& trace) {
    readStrings(entry, handle, descriptor, trace);
    entry.hDevice = handle;
    readDeviceDescriptor(entry, trace);
    if (!readConfiguration(entry, trace)) {
        trace.step("LibUSB_CreateDeviceList2 19b");
        clearConfiguration(entry);
    }
    closeHandle(entry, HandleClose::logged);
    trace.step("LibUSB_CreateDeviceList2 20");
}

/// Fills a record with everything that can be read of its device.
void fillRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device* device,
                const libusb_device_descriptor& descriptor, const EnumerationStyle& style,
                const StepTrace& trace) {
    if (style.isWatched) {
        tlvn_libusb_ref_device(nullptr, device);
    }
    holdDevice(entry, device);
    fillIdentity(entry, descriptor, trace);
    if (style.isWatched) {
        entry.busNumber = libusb_get_bus_number(device);
        trace.number("LibUSB_CreateDeviceList2 libusb_get_bus_number:bus_number=", entry.busNumber);
        trace.number("LibUSB_CreateDeviceList2 libusb_get_device_address:port_number=",
                     libusb_get_device_address(device));
    }
    libusb_device_handle* handle = nullptr;
    if (tlvn_libusb_open(&entry, device, &handle) != LIBUSB_SUCCESS) {
        trace.step("LibUSB_CreateDeviceList2 21: open failed");
        formatText(entry.sManufacturer, "<cannot_open>%04X:%04X", descriptor.idVendor, descriptor.idProduct);
        formatText(entry.sProduct, "%s", entry.sManufacturer);
        return;
    }
    readDevice(entry, handle, descriptor, trace);
}

/// Appends a record for each wanted device in libusb's array.
void listDevices(tagUSB_DEVICE_LIST& list, ssize_t deviceCount, const EnumerationStyle& style,
                 const StepTrace& trace) {
    tagUSB_DEVICE_ACCESS_ENTRY* last = nullptr;
    for (ssize_t n = 1; n <= deviceCount; ++n) {
        trace.number("LibUSB_CreateDeviceList2 02:", static_cast<int32_t>(n));
        libusb_device* device = list.ppDevList[n - 1];
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) != LIBUSB_SUCCESS) {
            continue;
        }
        trace.number("LibUSB_CreateDeviceList2 03: dVID", descriptor.idVendor);
        if (!isWanted(list, style, descriptor.idVendor)) {
            continue;
        }
        trace.step("LibUSB_CreateDeviceList2 04");
        tagUSB_DEVICE_ACCESS_ENTRY* entry = newDeviceRecord(list);
        appendRecords(list, entry, last);
        last = entry;
        fillRecord(*entry, device, descriptor, style, trace);
    }
}

/// Frees libusb's device array, also when memory runs out in between.
class DeviceArray {
 public:
    DeviceArray(libusb_device** devices, bool owned) : devices_(owned ? devices : nullptr) {}
    ~DeviceArray() {
        if (devices_ != nullptr) {
            libusb_free_device_list(devices_, 1);
        }
    }
    DeviceArray(const DeviceArray&) = delete;
    DeviceArray& operator=(const DeviceArray&) = delete;

 private:
    libusb_device** devices_;
};

}  // namespace

void enumerateDevices(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style) {
    const StepTrace trace(style.isWatched);
    const ssize_t deviceCount = list.pContext == nullptr
                                    ? ssize_t{LIBUSB_ERROR_INVALID_PARAM}
                                    : libusb_get_device_list(list.pContext, &list.ppDevList);
    trace.number("LibUSB_CreateDeviceList2 libusb_get_device_list:deviceCount=",
                 static_cast<int32_t>(deviceCount));
    {
        const bool owned = deviceCount > 0 || (deviceCount == 0 && !style.isWatched);
        const DeviceArray array(list.ppDevList, owned);
        listDevices(list, deviceCount, style, trace);
    }
    if (deviceCount > 0) {
        HID_MarkHidDevicesInList(&list);
    }
}
