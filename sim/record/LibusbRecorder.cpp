// The functions of libusb whose traffic is recorded. All others are jumps to the real library's.
#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#include <algorithm>
#include <array>
#include <cstdint>

#include "Flights.h"
#include "Forward.h"
#include "LibusbPlaces.h"
#include "Traffic.h"
#include "UsbDescriptors.h"
#include "libusb/AsciiString.h"

RECORDED_FUNCTION(libusb_open);
RECORDED_FUNCTION(libusb_open_device_with_vid_pid);
RECORDED_FUNCTION(libusb_wrap_sys_device);
RECORDED_FUNCTION(libusb_control_transfer);
RECORDED_FUNCTION(libusb_bulk_transfer);
RECORDED_FUNCTION(libusb_interrupt_transfer);
RECORDED_FUNCTION(libusb_set_configuration);
RECORDED_FUNCTION(libusb_set_interface_alt_setting);
RECORDED_FUNCTION(libusb_clear_halt);
RECORDED_FUNCTION(libusb_get_bos_descriptor);
RECORDED_FUNCTION(libusb_alloc_transfer);
RECORDED_FUNCTION(libusb_free_transfer);
RECORDED_FUNCTION(libusb_submit_transfer);

namespace {

namespace capture = simbus::capture;
using simbus::record::Inside;
using simbus::record::isRecorded;
using simbus::record::Move;
using simbus::record::placeOf;
using simbus::record::Request;

std::int32_t statusOf(int result) {
    switch (result) {
        case LIBUSB_ERROR_PIPE:
            return capture::statusStall;
        case LIBUSB_ERROR_TIMEOUT:
        case LIBUSB_ERROR_INTERRUPTED:
            return capture::statusCancelled;
        case LIBUSB_ERROR_NO_DEVICE:
            return capture::statusNoDevice;
        case LIBUSB_ERROR_OVERFLOW:
            return capture::statusOverflow;
        default:
            return result < 0 ? capture::statusError : capture::statusCompleted;
    }
}

/// Opens a device, and records its descriptors when that has succeeded.
template <class Open>
int opened(libusb_device_handle** handle, Open open) {
    const bool recorded = isRecorded();
    const Inside inside;
    const int result = open();
    if (recorded && result == LIBUSB_SUCCESS) {
        simbus::record::recordDescriptors(*handle);
    }
    return result;
}

/// Runs a transfer that the caller waits for. `run` returns libusb's result and sets the bytes moved.
template <class Run>
int transferred(const Move& move, Run run) {
    const std::uint64_t urb = recordStart(move);
    int moved = 0;
    const int result = [&] {
        const Inside inside;
        return run(moved);
    }();
    recordEnd(urb, move, statusOf(result), static_cast<std::size_t>(std::max(moved, 0)));
    return result;
}

template <class Transfer>
int runPipe(Transfer real, capture::Kind kind, libusb_device_handle* handle, unsigned char endpoint,
            unsigned char* data, int length, int* transferredBytes, unsigned int timeout) {
    if (!isRecorded() || length < 0) {
        return real(handle, endpoint, data, length, transferredBytes, timeout);
    }
    Move move;
    move.place = placeOf(handle);
    move.kind = kind;
    move.endpoint = endpoint;
    move.data = data;
    move.length = static_cast<std::size_t>(length);
    return transferred(move, [&](int& moved) {
        const int result = real(handle, endpoint, data, length, &moved, timeout);
        if (transferredBytes != nullptr) {
            *transferredBytes = moved;
        }
        return result;
    });
}

/// A call that makes the system send a request to the device.
template <class Call>
int requested(libusb_device_handle* handle, const Request& request, Call call) {
    const bool recorded = isRecorded();
    const Inside inside;
    const int result = call();
    if (recorded) {
        recordRequest(placeOf(handle), request, {}, statusOf(result));
    }
    return result;
}

int readString(libusb_device_handle* handle, std::uint8_t index, std::uint16_t language, unsigned char* data,
               int length) {
    constexpr unsigned kTimeoutMs = 1000;
    return libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                   static_cast<std::uint16_t>(LIBUSB_DT_STRING << 8 | index), language, data,
                                   static_cast<std::uint16_t>(length), kTimeoutMs);
}

}  // namespace

int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    return opened(handle, [&] { return REAL(libusb_open)(device, handle); });
}

int libusb_wrap_sys_device(libusb_context* context, intptr_t descriptor, libusb_device_handle** handle) {
    return opened(handle, [&] { return REAL(libusb_wrap_sys_device)(context, descriptor, handle); });
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, uint16_t vendorId,
                                                      uint16_t productId) {
    libusb_device_handle* handle = nullptr;
    opened(&handle, [&] {
        handle = REAL(libusb_open_device_with_vid_pid)(context, vendorId, productId);
        return handle == nullptr ? LIBUSB_ERROR_NOT_FOUND : LIBUSB_SUCCESS;
    });
    return handle;
}

int libusb_control_transfer(libusb_device_handle* handle, uint8_t requestType, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout) {
    const auto run = [&] {
        return REAL(libusb_control_transfer)(handle, requestType, request, value, index, data, length,
                                             timeout);
    };
    if (!isRecorded()) {
        return run();
    }
    std::array<unsigned char, LIBUSB_CONTROL_SETUP_SIZE> setup{};
    libusb_fill_control_setup(setup.data(), requestType, request, value, index, length);
    Move move;
    move.place = placeOf(handle);
    move.endpoint = requestType & LIBUSB_ENDPOINT_IN;
    move.setup = setup.data();
    move.data = data;
    move.length = length;
    return transferred(move, [&](int& moved) { return moved = run(); });
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                         int length, int* moved, unsigned int timeout) {
    return runPipe(REAL(libusb_bulk_transfer), capture::Kind::bulk, handle, endpoint, data, length, moved,
                   timeout);
}

int libusb_interrupt_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                              int length, int* moved, unsigned int timeout) {
    return runPipe(REAL(libusb_interrupt_transfer), capture::Kind::interrupt, handle, endpoint, data, length,
                   moved, timeout);
}

// As libusb does it. Its own requests for strings could not be seen where it calls itself directly.
int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* text,
                                       int length) {
    const auto read = [&](std::uint8_t number, std::uint16_t language, unsigned char* data, int size) {
        return readString(handle, number, language, data, size);
    };
    return sim::asciiString(read, index, text, length);
}

int libusb_set_configuration(libusb_device_handle* handle, int configuration) {
    constexpr std::uint8_t kSetConfiguration = LIBUSB_REQUEST_SET_CONFIGURATION;
    // -1 stands for none.
    const auto value = static_cast<std::uint16_t>(std::max(configuration, 0));
    return requested(handle, {0, kSetConfiguration, value, 0},
                     [&] { return REAL(libusb_set_configuration)(handle, configuration); });
}

int libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface, int alternate) {
    return requested(handle,
                     {LIBUSB_RECIPIENT_INTERFACE, LIBUSB_REQUEST_SET_INTERFACE,
                      static_cast<std::uint16_t>(alternate), static_cast<std::uint16_t>(interface)},
                     [&] { return REAL(libusb_set_interface_alt_setting)(handle, interface, alternate); });
}

int libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint) {
    return requested(handle, {LIBUSB_RECIPIENT_ENDPOINT, LIBUSB_REQUEST_CLEAR_FEATURE, 0, endpoint},
                     [&] { return REAL(libusb_clear_halt)(handle, endpoint); });
}

int libusb_get_bos_descriptor(libusb_device_handle* handle, libusb_bos_descriptor** descriptor) {
    const bool recorded = isRecorded();
    const Inside inside;
    const int result = REAL(libusb_get_bos_descriptor)(handle, descriptor);
    if (recorded) {
        constexpr std::uint16_t kBos = LIBUSB_DT_BOS << 8;
        const bool isThere = result == LIBUSB_SUCCESS;
        // One that is not there: the request for its header.
        const auto bytes =
            isThere ? simbus::record::bytesOf(**descriptor) : simbus::record::Bytes(LIBUSB_DT_BOS_SIZE);
        recordRequest(placeOf(handle), {LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR, kBos, 0}, bytes,
                      statusOf(result));
    }
    return result;
}

libusb_transfer* libusb_alloc_transfer(int isochronousPackets) {
    libusb_transfer* transfer = REAL(libusb_alloc_transfer)(isochronousPackets);
    if (transfer != nullptr && isRecorded()) {
        simbus::record::addFlight(transfer);
    }
    return transfer;
}

void libusb_free_transfer(libusb_transfer* transfer) {
    simbus::record::removeFlight(transfer);
    REAL(libusb_free_transfer)(transfer);
}

int libusb_submit_transfer(libusb_transfer* transfer) {
    if (!isRecorded() || !simbus::record::startFlight(transfer)) {
        return REAL(libusb_submit_transfer)(transfer);
    }
    const int result = REAL(libusb_submit_transfer)(transfer);
    if (result != LIBUSB_SUCCESS) {
        simbus::record::refuseFlight(transfer, statusOf(result));
    }
    return result;
}
