#pragma once

#include <cstdint>

// Negative result codes; a result of 0 or more is a count, a handle or success. Java has them as
// UsbAccessCode. Codes of libusb, -1 to -99, pass through unchanged; of those, the library itself returns
// only the first two below.

constexpr int32_t kNoMemory = -11;              ///< out of memory: any native method
constexpr int32_t kOtherError = -99;            ///< thread creation failed: any native method
constexpr int32_t kNoContext = -101;            ///< no context to release; internal
constexpr int32_t kNotEnumerated = -102;        ///< an update has not enumerated its list yet; internal
constexpr int32_t kNoSuchList = -103;           ///< no list has this handle: update and release of lists
constexpr int32_t kNoLists = -104;              ///< no list was ever created: update and release of lists
constexpr int32_t kAlreadyOpen = -105;          ///< already open: open
constexpr int32_t kOpenFailed = -107;           ///< cannot be opened (no permission, device gone): open
constexpr int32_t kClaimFailed = -108;          ///< the interface is claimed elsewhere: open
constexpr int32_t kNotOpen = -109;              ///< not open, or endpoint number above 15: calls on devices
constexpr int32_t kWriteFailed = -112;          ///< submission failed, or a HID report was not sent: writes
constexpr int32_t kReadFailed = -113;           ///< submission failed: reads
constexpr int32_t kBadArgument = -114;          ///< no such record, or a value out of range: calls on devices
constexpr int32_t kSessionOpen = -115;          ///< a session is already open: usbInitialize
constexpr int32_t kWrongSession = -116;         ///< not the id of the open session: calls with a session id
constexpr int32_t kNotOffered = -120;           ///< not offered for this device, or at all: calls on devices
constexpr int32_t kConfigurationFailed = -130;  ///< configuration 1 cannot be set: open
constexpr int32_t kNotAvailable = -131;         ///< device or descriptor not available: open, queries
constexpr int32_t kHidThreadFailed = -140;      ///< HID read thread not started: HIDAccess::Open; internal
constexpr int32_t kTimedOut = -150;             ///< timed out: transfers, except control transfers
constexpr int32_t kUnsupportedClass = -158;     ///< device class not driven: open
constexpr int32_t kNoBuffer = -170;             ///< null buffer for a configuration descriptor; internal
constexpr int32_t kNoContextPointer = -200;     ///< null address for the context; internal
