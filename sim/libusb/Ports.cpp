// Where a device is plugged in.
#include <algorithm>

#include "Checks.h"
#include "Devices.h"
#include "LibusbNewer.h"

using sim::StateLock;

int libusb_get_port_numbers(libusb_device* given, uint8_t* numbers, int length) {
    SIM_ENTER();
    if (length <= 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const simbus::Bytes& ports = device->info->ports;
    if (ports.size() > static_cast<std::size_t>(length)) {
        return LIBUSB_ERROR_OVERFLOW;
    }
    std::copy(ports.begin(), ports.end(), numbers);
    return static_cast<int>(ports.size());
}

int libusb_get_port_path(libusb_context* /*context*/, libusb_device* device, uint8_t* path, uint8_t length) {
    return libusb_get_port_numbers(device, path, length);
}

libusb_device* libusb_get_parent(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr ? nullptr : sim::findDevice(*device->context, device->info->hub);
}

/// The number of the bus and the address, as on Linux.
unsigned long libusb_get_session_data(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr
               ? 0UL
               : static_cast<unsigned long>(device->info->busNumber) << 8U | device->info->address;
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, uint16_t vendorId,
                                                      uint16_t productId) {
    static simbus::CallPoint callPoint(__func__);
    libusb_device** list = nullptr;
    if (callPoint.enter() || libusb_get_device_list(context, &list) < 0) {
        return nullptr;
    }
    libusb_device_handle* handle = nullptr;
    for (libusb_device** each = list; *each != nullptr; ++each) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(*each, &descriptor);
        if (descriptor.idVendor == vendorId && descriptor.idProduct == productId) {
            if (libusb_open(*each, &handle) != LIBUSB_SUCCESS) {
                handle = nullptr;
            }
            break;
        }
    }
    libusb_free_device_list(list, 1);
    return handle;
}
