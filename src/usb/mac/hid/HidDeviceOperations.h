#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct libusb_context;

// The HID seam: the operations that the library needs from a platform's HID interface. Whatever does not
// depend on the platform (which service belongs to which record, the ring, packets, padding, time-outs,
// thread states) is implemented above it, once for all platforms.
//
// Two threads use an open device: its caller (open, close, sendReport) and its read thread (startInput,
// runPeriod, stopInput). The caller closes a device only after its read thread has left it.

/// An open device, created by `open` and freed by `close`. Each platform defines its own.
struct HidDevice;

/// One HID device as the platform lists it. A value that the platform does not have is missing, not empty.
struct HidDeviceInfo {
    std::optional<int32_t> vendorId;   ///< 0 to 0xFFFF
    std::optional<int32_t> productId;  ///< 0 to 0xFFFF
    std::optional<std::string> manufacturer;
    std::optional<std::string> product;
    std::optional<std::string> serialNumber;  ///< UTF-8
};

/// Outcome of an open.
enum class HidOpenResult {
    opened,
    notFound,     ///< no such device, or no plug-in for it
    notOpenable,  ///< its interface could not be obtained or opened
};

/// Receives one input report of `length` bytes. `context` is that of startInput. `report` points to a buffer
/// of kLargestPacket bytes (1024): the callback may read beyond `length`.
using HidReportCallback = void (*)(void* context, const uint8_t* report, int32_t length);

struct HidDeviceOperations {
    /// Fills `devices` with every HID device present, in the platform's order. Returns false when the
    /// platform cannot list them; then no record is marked. Called on the caller's thread, during list
    /// creation.
    bool (*list)(std::vector<HidDeviceInfo>& devices);

    /// Opens the first device with these ids and this serial number; "?" matches any serial number, an empty
    /// string only an empty one. On `opened` the caller owns `*device` and has to close it; otherwise
    /// `*device` is null and HIDAccess::Open returns -131 (notFound) or -107 (notOpenable). Called on the
    /// caller's thread.
    HidOpenResult (*open)(uint16_t vendorId, uint16_t productId, const char* serialNumber,
                          HidDevice** device);

    /// Closes and frees the device, also one that was unplugged.
    void (*close)(HidDevice* device);

    /// Starts input on the calling thread, the device's read thread: from now on runPeriod passes each input
    /// report, of at most `length` bytes, to `callback`. `buffer` (`length` bytes, valid until stopInput) is
    /// for a platform that needs a buffer of the caller. Returns false when the device refuses; then the read
    /// thread ends at once.
    bool (*startInput)(HidDevice* device, uint8_t* buffer, int32_t length, HidReportCallback callback,
                       void* context);

    /// Handles the device's events for one short period (0.5 to 5 milliseconds) on the read thread, and
    /// sleeps while there are none. Returns false when the platform reports that its event loop was stopped;
    /// then the read thread ends. An unplugged device has periods without events.
    bool (*runPeriod)(HidDevice* device);

    /// Ends the input that startInput began. Called on the read thread, as its last use of the device.
    void (*stopInput)(HidDevice* device);

    /// Stops the event loop of the calling thread (not of the read thread), where the platform has one.
    void (*stopCallersLoop)();

    /// Sends one output report of `length` bytes with report id 0 and waits until the system has accepted it.
    /// `timeoutMs` (milliseconds) is for a platform that can limit this wait; neither of the two can. Returns
    /// false on failure, also for an unplugged device; then the write returns -112. Called on the caller's
    /// thread, concurrently with the read thread.
    bool (*sendReport)(HidDevice* device, const uint8_t* report, int32_t length, int32_t timeoutMs);

    /// Copies the first configuration descriptor of the first USB device with these ids, whatever its serial
    /// number, to `buffer`: the lesser of its total length and `size` bytes. Opens no HID interface. A
    /// platform that uses libusb for it does so in hidUsbContext. Called on the caller's thread, during list
    /// creation. Returns the bytes copied, or -131; the record is then a HID device without a configuration.
    int32_t (*readConfigDescriptor)(uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size);
};

/// The platform's own table.
const HidDeviceOperations& platformHidOperations();

/// The table in use: the platform's, unless a test has replaced it.
const HidDeviceOperations& hidOperations();
void setHidOperations(const HidDeviceOperations& operations);

/// The libusb context of the list whose HID devices are being marked; null at all other times.
libusb_context* hidUsbContext();
void setHidUsbContext(libusb_context* context);
