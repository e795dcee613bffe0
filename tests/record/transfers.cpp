// A program that uses libusb: it writes to the device 1209:7001 and reads the same bytes back, through
// requests, bulk and interrupt endpoints, and in the end has the exit status 7.
#include <libusb.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned kTimeoutMs = 5000;
constexpr int kDone = 7;

void expect(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "transfers: %s\n", what);
        std::exit(1);
    }
}

void LIBUSB_CALL ended(libusb_transfer* transfer) {
    *static_cast<int*>(transfer->user_data) = 1;
}

/// Runs an asynchronous transfer of interrupt data; returns how many bytes it has moved.
int moveInterrupt(libusb_device_handle* handle, std::uint8_t endpoint, std::uint8_t* data, int length) {
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    int isEnded = 0;
    libusb_fill_interrupt_transfer(transfer, handle, endpoint, data, length, &ended, &isEnded, kTimeoutMs);
    expect(libusb_submit_transfer(transfer) == LIBUSB_SUCCESS, "a transfer is refused");
    while (isEnded == 0) {
        expect(libusb_handle_events_completed(nullptr, &isEnded) == LIBUSB_SUCCESS, "no events");
    }
    expect(transfer->status == LIBUSB_TRANSFER_COMPLETED && transfer->callback == &ended, "a transfer fails");
    const int moved = transfer->actual_length;
    libusb_free_transfer(transfer);
    return moved;
}

void exchange(libusb_device_handle* handle) {
    std::uint8_t data[64] = "request";
    expect(libusb_control_transfer(handle, 0x40, 1, 0, 0, data, 7, kTimeoutMs) == 7, "no request out");
    expect(libusb_control_transfer(handle, 0xC0, 1, 0, 0, data, sizeof data, kTimeoutMs) == 7,
           "no request in");
    expect(std::memcmp(data, "request", 7) == 0, "other bytes");

    std::memcpy(data, "question", 8);
    int moved = 0;
    expect(libusb_bulk_transfer(handle, 0x01, data, 8, &moved, kTimeoutMs) == 0 && moved == 8, "no bulk out");
    expect(libusb_bulk_transfer(handle, 0x81, data, sizeof data, &moved, kTimeoutMs) == 0 && moved == 8,
           "no bulk in");
    expect(std::memcmp(data, "question", 8) == 0, "other bulk bytes");

    std::memcpy(data, "later", 5);
    expect(moveInterrupt(handle, 0x02, data, 5) == 5, "no interrupt out");
    expect(moveInterrupt(handle, 0x82, data, sizeof data) == 5, "no interrupt in");
    expect(std::memcmp(data, "later", 5) == 0, "other interrupt bytes");
}

}  // namespace

int main() {
    expect(libusb_init(nullptr) == LIBUSB_SUCCESS, "no libusb");
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(nullptr, 0x1209, 0x7001);
    expect(handle != nullptr, "no device");
    expect(libusb_claim_interface(handle, 0) == LIBUSB_SUCCESS, "no interface");
    exchange(handle);
    libusb_close(handle);
    libusb_exit(nullptr);
    return kDone;
}
