#pragma once

#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <thread>

/// A device opened with libusb and nothing else: what the library is held against.
class PlainLibusb {
 public:
    /// The first device with this serial number, its interface 0 claimed. Ends the program when there is
    /// none. With an event thread, there is one that handles events by the second, as a program has it that
    /// wants to hear of hotplug events.
    explicit PlainLibusb(const char* serialNumber, bool eventThread = false);
    ~PlainLibusb();
    PlainLibusb(const PlainLibusb&) = delete;
    PlainLibusb& operator=(const PlainLibusb&) = delete;

    /// One transfer, submitted and waited for as libusb's manual shows it. True when all bytes went.
    bool transferAsynchronously(bool interrupt, unsigned char endpoint, uint8_t* bytes, int32_t length);
    /// The same with libusb_bulk_transfer and libusb_interrupt_transfer.
    bool transferSynchronously(bool interrupt, unsigned char endpoint, uint8_t* bytes, int32_t length);

 private:
    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    libusb_transfer* transfer_ = nullptr;  ///< made once, as the library does
    std::atomic<bool> stop_{false};
    std::thread events_;
};
