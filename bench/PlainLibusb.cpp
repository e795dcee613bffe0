#include "PlainLibusb.h"

#include <cstring>

#include "Library.h"

namespace {

bool hasSerialNumber(libusb_device_handle* handle, const char* wanted) {
    libusb_device_descriptor descriptor{};
    unsigned char text[128] = {};
    return libusb_get_device_descriptor(libusb_get_device(handle), &descriptor) == 0 &&
           libusb_get_string_descriptor_ascii(handle, descriptor.iSerialNumber, text, sizeof text - 1) > 0 &&
           std::strcmp(reinterpret_cast<const char*>(text), wanted) == 0;
}

void LIBUSB_CALL completed(libusb_transfer* transfer) {
    *static_cast<int*>(transfer->user_data) = 1;
}

}  // namespace

PlainLibusb::PlainLibusb(const char* serialNumber, bool eventThread) {
    demand(libusb_init(&context_) == 0, "libusb does not start");
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context_, &devices);
    for (ssize_t i = 0; i < count && handle_ == nullptr; ++i) {
        if (libusb_open(devices[i], &handle_) == 0 && !hasSerialNumber(handle_, serialNumber)) {
            libusb_close(handle_);
            handle_ = nullptr;
        }
    }
    libusb_free_device_list(devices, 1);
    demand(handle_ != nullptr && libusb_claim_interface(handle_, 0) == 0, "the device cannot be opened");
    transfer_ = libusb_alloc_transfer(0);
    demand(transfer_ != nullptr, "out of memory");
    if (eventThread) {
        events_ = std::thread([this] {
            while (!stop_) {
                timeval second{1, 0};
                libusb_handle_events_timeout_completed(context_, &second, nullptr);
            }
        });
    }
}

PlainLibusb::~PlainLibusb() {
    if (events_.joinable()) {
        stop_ = true;
        libusb_interrupt_event_handler(context_);
        events_.join();
    }
    libusb_free_transfer(transfer_);
    libusb_release_interface(handle_, 0);
    libusb_close(handle_);
    libusb_exit(context_);
}

bool PlainLibusb::transferAsynchronously(bool interrupt, unsigned char endpoint, uint8_t* bytes,
                                         int32_t length) {
    int done = 0;
    libusb_fill_bulk_transfer(transfer_, handle_, endpoint, bytes, length, completed, &done, kBenchTimeoutMs);
    if (interrupt) {
        transfer_->type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
    }
    if (libusb_submit_transfer(transfer_) != 0) {
        return false;
    }
    while (done == 0) {
        libusb_handle_events_completed(context_, &done);
    }
    return transfer_->status == LIBUSB_TRANSFER_COMPLETED && transfer_->actual_length == length;
}

bool PlainLibusb::transferSynchronously(bool interrupt, unsigned char endpoint, uint8_t* bytes,
                                        int32_t length) {
    const auto transfer = interrupt ? libusb_interrupt_transfer : libusb_bulk_transfer;
    int moved = 0;
    return transfer(handle_, endpoint, bytes, length, &moved, kBenchTimeoutMs) == 0 && moved == length;
}
