// The kernel's part in an interface, as programs see it: its driver, streams, memory for transfers, raw
// transfers and devices that were opened elsewhere.
#include <sys/mman.h>

#include <algorithm>

#include "Checks.h"
#include "Claims.h"
#include "Handles.h"
#include "LibusbNewer.h"

using sim::StateLock;

int libusb_kernel_driver_active(libusb_device_handle* given, int interfaceNumber) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    return sim::heldByHidDriver(*opened.handle->device, static_cast<std::uint8_t>(interfaceNumber)) ? 1 : 0;
}

/// The HID driver is the only one, and takes any HID interface that is free.
int libusb_attach_kernel_driver(libusb_device_handle* given, int interfaceNumber) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    const auto number = static_cast<std::uint8_t>(interfaceNumber);
    const auto& hid = opened.handle->device->info->hidInterfaces;
    if (std::none_of(hid.begin(), hid.end(), [&](const auto& each) { return each.number == number; })) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (sim::state().claims.count({opened.connection, number}) != 0) {
        return LIBUSB_ERROR_BUSY;
    }
    lock.unlock();
    const auto status = simbus::Bus::instance().setDriver(opened.connection, number, true);
    return status == simbus::Status::completed ? LIBUSB_SUCCESS : LIBUSB_ERROR_BUSY;
}

int libusb_detach_kernel_driver(libusb_device_handle* given, int interfaceNumber) {
    SIM_ENTER();
    StateLock lock(sim::state().mutex);
    const auto opened = sim::attachedInterface(__func__, given, interfaceNumber);
    if (opened.error != LIBUSB_SUCCESS) {
        return opened.error;
    }
    lock.unlock();
    const auto status = simbus::Bus::instance().setDriver(opened.connection,
                                                          static_cast<std::uint8_t>(interfaceNumber), false);
    return status == simbus::Status::completed ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

int libusb_set_auto_detach_kernel_driver(libusb_device_handle* given, int enable) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    libusb_device_handle* handle = sim::checkHandle(__func__, given);
    if (handle == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    handle->detachesDrivers = enable != 0;
    return LIBUSB_SUCCESS;
}

/// No device of this system is on the simulated bus: a file descriptor belongs to no device, as any that is
/// not a USB device's.
int libusb_wrap_sys_device(libusb_context* given, intptr_t /*device*/, libusb_device_handle** /*handle*/) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    return sim::checkContext(__func__, given) == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_ERROR_IO;
}

namespace {

/// The code of a call on a handle that needs what no simulated device has.
int refuse(const char* function, libusb_device_handle* given, int code) {
    const StateLock lock(sim::state().mutex);
    const libusb_device_handle* handle = sim::checkHandle(function, given);
    if (handle == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? code : static_cast<int>(LIBUSB_ERROR_NO_DEVICE);
}

/// No endpoint of a simulated device has streams; the kernel refuses them as invalid.
int refuseStreams(const char* function, libusb_device_handle* given, const unsigned char* endpoints,
                  int count) {
    const bool valid = endpoints != nullptr && count > 0;
    return valid ? refuse(function, given, LIBUSB_ERROR_INVALID_PARAM)
                 : static_cast<int>(LIBUSB_ERROR_INVALID_PARAM);
}

}  // namespace

int libusb_alloc_streams(libusb_device_handle* given, uint32_t streams, unsigned char* endpoints, int count) {
    SIM_ENTER();
    return streams == 0 ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM)
                        : refuseStreams(__func__, given, endpoints, count);
}

int libusb_free_streams(libusb_device_handle* given, unsigned char* endpoints, int count) {
    SIM_ENTER();
    return refuseStreams(__func__, given, endpoints, count);
}

void libusb_transfer_set_stream_id(libusb_transfer* given, uint32_t stream) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    if (sim::TransferRecord* record = sim::checkTransfer(__func__, given); record != nullptr) {
        record->stream = stream;
    }
}

uint32_t libusb_transfer_get_stream_id(libusb_transfer* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const sim::TransferRecord* record = sim::checkTransfer(__func__, given);
    return record == nullptr ? 0 : record->stream;
}

/// The memory is a mapping of its own, as the kernel's is.
unsigned char* libusb_dev_mem_alloc(libusb_device_handle* given, size_t length) {
    static simbus::CallPoint callPoint(__func__);
    if (callPoint.enter() || refuse(__func__, given, LIBUSB_SUCCESS) != LIBUSB_SUCCESS) {
        return nullptr;
    }
    void* memory = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<unsigned char*>(memory);
}

int libusb_dev_mem_free(libusb_device_handle* given, unsigned char* buffer, size_t length) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    if (sim::checkHandle(__func__, given) == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return munmap(buffer, length) == 0 ? LIBUSB_SUCCESS : LIBUSB_ERROR_OTHER;
}

// Raw transfers exist on Windows only: elsewhere the answer is the same for every device, also one that has
// left.

int libusb_endpoint_supports_raw_io(libusb_device_handle* /*handle*/, uint8_t /*endpoint*/) {
    SIM_ENTER();
    return 0;
}

int libusb_endpoint_set_raw_io(libusb_device_handle* /*handle*/, uint8_t /*endpoint*/, int /*enable*/) {
    SIM_ENTER();
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

int libusb_get_max_raw_io_transfer_size(libusb_device_handle* /*handle*/, uint8_t /*endpoint*/) {
    SIM_ENTER();
    return LIBUSB_ERROR_NOT_SUPPORTED;
}
