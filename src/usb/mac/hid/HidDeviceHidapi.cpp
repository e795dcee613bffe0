// The HID operations of Linux: hidapi over hidraw, and libusb for the configuration descriptor.

#include <hidapi/hidapi.h>
#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <thread>

#include "ground/ResultCodes.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"

/// A device is opened twice, for the read thread and for the writer: hidapi keeps an error text per handle
/// without a lock.
struct HidDevice {
    hid_device* reader;
    hid_device* writer;
    uint8_t report[kLargestPacket];  ///< receives each input report
    int32_t reportLength;
    HidReportCallback callback;
    void* context;
};

namespace {

constexpr int kPeriodMs = 5;  // a report ends the period at once

using HidDeviceList = std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)>;

HidDeviceList enumerate(uint16_t vendorId, uint16_t productId) {
    return {hid_enumerate(vendorId, productId), &hid_free_enumeration};
}

/// A string of hidapi as UTF-8. hidapi gives an empty string for one that the device does not have, so empty
/// counts as missing. A character outside ASCII becomes U+FFFD, so such a string equals that of no record.
std::optional<std::string> textOf(const wchar_t* text) {
    if (text == nullptr || *text == L'\0') {
        return std::nullopt;
    }
    std::string result;
    for (; *text != L'\0'; ++text) {
        const bool ascii = *text > 0 && *text < 0x80;
        result += ascii ? std::string(1, static_cast<char>(*text)) : std::string("\xEF\xBF\xBD");
    }
    return result;
}

bool listDevices(std::vector<HidDeviceInfo>& devices) {
    if (hid_init() != 0) {
        return false;
    }
    const HidDeviceList list = enumerate(0, 0);
    std::set<std::string> paths;  // hidapi lists a device once for each usage that it declares
    for (const hid_device_info* each = list.get(); each != nullptr; each = each->next) {
        // A device that is being unplugged has no path any more.
        if (each->path != nullptr && paths.insert(each->path).second) {
            devices.push_back({each->vendor_id, each->product_id, textOf(each->manufacturer_string),
                               textOf(each->product_string), textOf(each->serial_number)});
        }
    }
    return true;
}

/// Compares the ids, too: hidapi's search takes an id of 0 for any.
bool isWanted(const hid_device_info& device, uint16_t vendorId, uint16_t productId,
              const char* serialNumber) {
    const bool serialFits =
        std::strcmp(serialNumber, "?") == 0 || textOf(device.serial_number).value_or("") == serialNumber;
    return device.path != nullptr && device.vendor_id == vendorId && device.product_id == productId &&
           serialFits;
}

void closeDevice(HidDevice* device) {
    for (hid_device* handle : {device->reader, device->writer}) {
        if (handle != nullptr) {
            hid_close(handle);
        }
    }
    delete device;
}

HidOpenResult openDevice(uint16_t vendorId, uint16_t productId, const char* serialNumber,
                         HidDevice** device) {
    *device = nullptr;
    const HidDeviceList list = enumerate(vendorId, productId);
    const hid_device_info* found = list.get();
    while (found != nullptr && !isWanted(*found, vendorId, productId, serialNumber)) {
        found = found->next;
    }
    if (found == nullptr) {
        return HidOpenResult::notFound;
    }
    auto* opened = new (std::nothrow) HidDevice{};
    if (opened == nullptr) {
        return HidOpenResult::notOpenable;
    }
    opened->reader = hid_open_path(found->path);
    opened->writer = opened->reader == nullptr ? nullptr : hid_open_path(found->path);
    if (opened->writer == nullptr) {
        closeDevice(opened);
        return HidOpenResult::notOpenable;
    }
    *device = opened;
    return HidOpenResult::opened;
}

/// Reports are read into the device's own buffer. The given one is part of the ring's last slot at some
/// packet sizes: the next report would overwrite one that waits there.
bool startInput(HidDevice* device, uint8_t* /*buffer*/, int32_t length, HidReportCallback callback,
                void* context) {
    device->reportLength = std::min(length, kLargestPacket);
    device->callback = callback;
    device->context = context;
    return true;
}

bool runPeriod(HidDevice* device) {
    const int received = hid_read_timeout(device->reader, device->report,
                                          static_cast<size_t>(device->reportLength), kPeriodMs);
    if (received > 0) {
        device->callback(device->context, device->report, received);
    } else if (received < 0) {
        // Unplugged: the read fails at once instead of waiting, but the object is still open.
        std::this_thread::sleep_for(std::chrono::milliseconds(kPeriodMs));
    }
    return true;
}

void stopInput(HidDevice* /*device*/) {}

void stopCallersLoop() {}

/// hidapi expects the report id as the first byte; an id of 0, for a device without ids, is not sent. The
/// time-out is unused: the kernel limits the write itself.
bool sendReport(HidDevice* device, const uint8_t* report, int32_t length, int32_t /*timeoutMs*/) {
    uint8_t numbered[1 + kLargestPacket];
    numbered[0] = 0;
    std::memcpy(numbered + 1, report, static_cast<size_t>(length));
    return hid_write(device->writer, numbered, static_cast<size_t>(length) + 1) >= 0;
}

bool hasIds(libusb_device* device, uint16_t vendorId, uint16_t productId) {
    libusb_device_descriptor descriptor{};
    return libusb_get_device_descriptor(device, &descriptor) == LIBUSB_SUCCESS &&
           descriptor.idVendor == vendorId && descriptor.idProduct == productId;
}

/// Reads the configuration descriptor of index 0 in wire format into `buffer` (`size` bytes). Returns its
/// bytes, or -131. Opening the device is safe: the enumeration has just opened it to read its strings.
int32_t requestConfiguration(libusb_device* device, uint8_t* buffer, int32_t size) {
    constexpr uint16_t kFirstConfiguration = LIBUSB_DT_CONFIG << 8;
    constexpr unsigned int kTimeoutMs = 1000;
    constexpr int kTotalLengthEnd = 4;  // wTotalLength is bytes 2 and 3
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) != LIBUSB_SUCCESS) {
        return kNotAvailable;
    }
    const int received = libusb_control_transfer(
        handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR, kFirstConfiguration, 0, buffer,
        static_cast<uint16_t>(std::clamp(size, 0, 0xFFFF)), kTimeoutMs);
    libusb_close(handle);
    if (received < 0) {
        return kNotAvailable;
    }
    const bool saysLength = received >= kTotalLengthEnd;
    const int count = saysLength ? std::min(received, buffer[2] | buffer[3] << 8) : received;
    std::memset(buffer + count, 0, static_cast<size_t>(received - count));
    return count;
}

int32_t readConfigDescriptor(uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size) {
    libusb_device** devices = nullptr;
    libusb_context* context = hidUsbContext();
    const ssize_t count = context == nullptr ? kNotAvailable : libusb_get_device_list(context, &devices);
    if (count < 0) {
        return kNotAvailable;
    }
    libusb_device** end = devices + count;
    libusb_device** found = std::find_if(
        devices, end, [=](libusb_device* device) { return hasIds(device, vendorId, productId); });
    const int32_t result = found == end ? kNotAvailable : requestConfiguration(*found, buffer, size);
    libusb_free_device_list(devices, 1);
    return result;
}

}  // namespace

const HidDeviceOperations& platformHidOperations() {
    static const HidDeviceOperations operations = {listDevices,     openDevice, closeDevice,
                                                   startInput,      runPeriod,  stopInput,
                                                   stopCallersLoop, sendReport, readConfigDescriptor};
    return operations;
}
