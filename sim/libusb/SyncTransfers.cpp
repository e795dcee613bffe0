// Synchronous transfers: the caller waits and handles events itself.
#include <algorithm>
#include <chrono>
#include <cstring>

#include "AsciiString.h"
#include "Checks.h"
#include "Events.h"
#include "Transfers.h"

namespace sim {

namespace {

void setCompleted(libusb_transfer* transfer) {
    __atomic_store_n(static_cast<int*>(transfer->user_data), 1, __ATOMIC_RELEASE);
}

int resultOf(libusb_transfer_status status) {
    switch (status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return LIBUSB_SUCCESS;
        case LIBUSB_TRANSFER_TIMED_OUT:
            return LIBUSB_ERROR_TIMEOUT;
        case LIBUSB_TRANSFER_STALL:
            return LIBUSB_ERROR_PIPE;
        case LIBUSB_TRANSFER_OVERFLOW:
            return LIBUSB_ERROR_OVERFLOW;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return LIBUSB_ERROR_NO_DEVICE;
        case LIBUSB_TRANSFER_ERROR:
        case LIBUSB_TRANSFER_CANCELLED:
            return LIBUSB_ERROR_IO;
        default:
            return LIBUSB_ERROR_OTHER;
    }
}

/// Submits the transfer and waits for it. `moved` receives the bytes transferred, whatever the result.
int run(const char* function, libusb_transfer wanted, int& moved) {
    {
        const StateLock lock(state().mutex);
        if (checkHandle(function, wanted.dev_handle) == nullptr) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        if (!checkMayWait(function)) {
            return LIBUSB_ERROR_BUSY;
        }
    }
    int completed = 0;
    wanted.callback = setCompleted;
    wanted.user_data = &completed;
    TransferRecord& record = allocateTransfer(0);
    *record.shown = wanted;
    int result = submitTransfer(record);
    if (result == LIBUSB_SUCCESS) {
        while (__atomic_load_n(&completed, __ATOMIC_ACQUIRE) == 0) {
            handleEvents(*record.context, std::chrono::seconds(60), &completed);
            const StateLock lock(state().mutex);
            if (record.shown->dev_handle == nullptr) {  // closed by another thread: no callback will run
                record.shown->status = LIBUSB_TRANSFER_NO_DEVICE;
                break;
            }
        }
        moved = record.shown->actual_length;
        result = resultOf(record.shown->status);
    }
    freeTransfer(record);
    return result;
}

int runPipe(const char* function, libusb_device_handle* handle, unsigned char type, unsigned char endpoint,
            unsigned char* data, int length, int* transferred, unsigned int timeout) {
    libusb_transfer wanted{};
    wanted.dev_handle = handle;
    wanted.type = type;
    wanted.endpoint = endpoint;
    wanted.buffer = data;
    wanted.length = length;
    wanted.timeout = timeout;
    int moved = 0;
    const int result = run(function, wanted, moved);
    if (transferred != nullptr) {
        *transferred = moved;
    }
    return result;
}

int runControl(const char* function, libusb_device_handle* handle, const simbus::Setup& setup,
               unsigned char* data, unsigned int timeout) {
    constexpr std::size_t kSetupSize = LIBUSB_CONTROL_SETUP_SIZE;
    std::vector<unsigned char> buffer(kSetupSize + setup.length);
    libusb_fill_control_setup(buffer.data(), setup.requestType, setup.request, setup.value, setup.index,
                              setup.length);
    const bool in = (setup.requestType & LIBUSB_ENDPOINT_IN) != 0;
    if (!in && setup.length != 0) {
        std::memcpy(buffer.data() + kSetupSize, data, setup.length);
    }
    libusb_transfer wanted{};
    wanted.dev_handle = handle;
    wanted.type = LIBUSB_TRANSFER_TYPE_CONTROL;
    wanted.buffer = buffer.data();
    wanted.length = static_cast<int>(buffer.size());
    wanted.timeout = timeout;
    int moved = 0;
    const int result = run(function, wanted, moved);
    if (in && moved > 0) {
        std::memcpy(data, buffer.data() + kSetupSize, static_cast<std::size_t>(moved));
    }
    return result == LIBUSB_SUCCESS ? moved : result;
}

/// Reads a string descriptor into a buffer. Returns the bytes read, or an error code.
int readString(const char* function, libusb_device_handle* handle, std::uint8_t index, std::uint16_t language,
               unsigned char* data, std::uint16_t length) {
    constexpr unsigned kTimeout = 1000;
    const auto value = static_cast<std::uint16_t>(LIBUSB_DT_STRING << 8 | index);
    return runControl(function, handle,
                      {LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR, value, language, length}, data,
                      kTimeout);
}

}  // namespace

}  // namespace sim

int libusb_control_transfer(libusb_device_handle* handle, uint8_t requestType, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout) {
    SIM_ENTER();
    return sim::runControl(__func__, handle, {requestType, request, value, index, length}, data, timeout);
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                         int length, int* transferred, unsigned int timeout) {
    SIM_ENTER();
    return sim::runPipe(__func__, handle, LIBUSB_TRANSFER_TYPE_BULK, endpoint, data, length, transferred,
                        timeout);
}

int libusb_interrupt_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                              int length, int* transferred, unsigned int timeout) {
    SIM_ENTER();
    return sim::runPipe(__func__, handle, LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, data, length, transferred,
                        timeout);
}

int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index, unsigned char* data,
                                       int length) {
    SIM_ENTER();
    const char* const function = __func__;
    const auto read = [&](std::uint8_t number, std::uint16_t language, unsigned char* bytes, int size) {
        return sim::readString(function, handle, number, language, bytes, static_cast<std::uint16_t>(size));
    };
    return sim::asciiString(read, index, data, length);
}
