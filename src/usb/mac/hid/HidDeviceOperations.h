#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct libusb_context;

// The HID seam: what the library needs of a platform's HID interface, as one table of operations. Everything
// that can be decided without the platform (which service belongs to which record, the ring, packets,
// padding, time-outs, thread states) is decided above it, so that all platforms behave alike.
//
// Two threads meet here for one open device: its caller (open, close, sendReport) and its read thread
// (startInput, runPeriod, stopInput). The caller closes a device only after its read thread has left.

/// An open device, made by `open` and ended by `close`. Each platform defines its own.
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
    notFound,     ///< no such device, or the platform offers no way in (no plug-in)
    notOpenable,  ///< there is one, and its interface could not be obtained or opened
};

/// Receives one input report: `context` as given to startInput, the report's bytes in the report buffer,
/// their number.
using HidReportCallback = void (*)(void* context, const uint8_t* report, int32_t length);

struct HidDeviceOperations {
    /// Fills `devices` with every HID device present, in the platform's order. False when the platform could
    /// not be asked; no record is marked then. Called during list creation, on the caller's thread.
    bool (*list)(std::vector<HidDeviceInfo>& devices);

    /// Opens the first device with these ids and this serial number; "?" stands for any serial number, an
    /// empty text for an empty one. On `opened`, `*device` is the caller's to close; else it is null,
    /// and the object stays closed with -131 (notFound) or -107 (notOpenable). On the caller's thread.
    HidOpenResult (*open)(uint16_t vendorId, uint16_t productId, const char* serialNumber,
                          HidDevice** device);

    /// Closes and frees the device; also one that was unplugged.
    void (*close)(HidDevice* device);

    /// Lets the calling thread, the device's read thread, receive input reports of at most `length` bytes:
    /// each is handed to `callback` on this same thread, during runPeriod. A platform that wants a buffer of
    /// the caller's to put them in has `buffer` (`length` bytes, until stopInput). False when the device does
    /// not take it; then the thread ends at once.
    bool (*startInput)(HidDevice* device, uint8_t* buffer, int32_t length, HidReportCallback callback,
                       void* context);

    /// Handles the device's events for one short period (0.5 to 5 milliseconds) on the read thread, sleeping
    /// while there are none. False when the platform reports that its event loop was stopped: the read thread
    /// then ends. An unplugged device goes on without events.
    bool (*runPeriod)(HidDevice* device);

    /// Ends what startInput began; called on the read thread as its last use of the device.
    void (*stopInput)(HidDevice* device);

    /// Stops the event loop of the calling thread (not of the read thread), where the platform has one.
    void (*stopCallersLoop)();

    /// Sends one output report of `length` bytes, report id 0, and waits until the system has it. `timeoutMs`
    /// (milliseconds) is for a platform that can bound that; neither of the two can. False on failure, also
    /// for a device that was unplugged; the write ends with -112 then. On the caller's thread, beside the
    /// read thread.
    bool (*sendReport)(HidDevice* device, const uint8_t* report, int32_t length, int32_t timeoutMs);

    /// Copies the first configuration descriptor of the first USB device with these ids, whatever its serial
    /// number, to `buffer`: the lesser of its total length and `size` bytes. No HID interface is opened for
    /// it. A platform that reads it through libusb does so in hidUsbContext. Called during list creation, on
    /// the caller's thread. Returns the bytes copied, or -131: the record is a HID device without a
    /// configuration then.
    int32_t (*readConfigDescriptor)(uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size);
};

/// The platform's own table.
const HidDeviceOperations& platformHidOperations();

/// The table in use: the platform's, until a test puts another one in its place.
const HidDeviceOperations& hidOperations();
void setHidOperations(const HidDeviceOperations& operations);

/// The libusb context of the list whose HID devices are being marked; null at all other times.
libusb_context* hidUsbContext();
void setHidUsbContext(libusb_context* context);
