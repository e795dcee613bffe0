#pragma once

#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <thread>

/// A device that is opened with plain libusb, for comparison with the library.
class PlainLibusb {
 public:
    /// Opens the first device with this serial number and claims its interface 0. Ends the program if there
    /// is none. With an event thread, a thread handles events in periods of a second, as in a program that
    /// receives hotplug events.
    explicit PlainLibusb(const char* serialNumber, bool eventThread = false);
    ~PlainLibusb();
    PlainLibusb(const PlainLibusb&) = delete;
    PlainLibusb& operator=(const PlainLibusb&) = delete;

    /// Submits one transfer and waits for it, as libusb's manual shows. True if all bytes were moved.
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
