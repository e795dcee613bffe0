#pragma once

#include <cstdint>

// The codes that calls answer instead of a count, a handle or 0. The Java class has them as UsbAccessCode;
// codes of libusb, -1 to -99, pass through as they are, and only the first two of them are answered by this
// library itself.

constexpr int32_t kNoMemory = -11;              ///< out of memory: any native method
constexpr int32_t kOtherError = -99;            ///< a thread cannot be started: any native method
constexpr int32_t kNoContext = -101;            ///< there is no context to release; internal
constexpr int32_t kNotEnumerated = -102;        ///< a renewal of a list has not begun; internal
constexpr int32_t kNoSuchList = -103;           ///< no list has the handle: all calls on lists
constexpr int32_t kNoLists = -104;              ///< no list was ever made: all calls on lists
constexpr int32_t kAlreadyOpen = -105;          ///< open
constexpr int32_t kOpenFailed = -107;           ///< no permission, or the device is gone: open
constexpr int32_t kClaimFailed = -108;          ///< the interface is in use elsewhere: open
constexpr int32_t kNotOpen = -109;              ///< also an endpoint number above 15: transfers, close
constexpr int32_t kWriteFailed = -112;          ///< not started or not sent: writes
constexpr int32_t kReadFailed = -113;           ///< not started: reads
constexpr int32_t kBadArgument = -114;          ///< no such record, or a value out of range: calls on devices
constexpr int32_t kSessionOpen = -115;          ///< there is a session: usbInitialize
constexpr int32_t kWrongSession = -116;         ///< not the id of the open session: calls with a session id
constexpr int32_t kNotOffered = -120;           ///< not for this kind of device, or not at all: transfers
constexpr int32_t kConfigurationFailed = -130;  ///< configuration 1 cannot be set: open
constexpr int32_t kNotAvailable = -131;         ///< the device is absent, or the descriptor: open, queries
constexpr int32_t kHidThreadFailed = -140;      ///< the read thread has not come up: open
constexpr int32_t kTimedOut = -150;             ///< transfers
constexpr int32_t kUnsupportedClass = -158;     ///< the library does not drive this device class: open
constexpr int32_t kNoBuffer = -170;             ///< no place for a configuration descriptor; internal
constexpr int32_t kNoContextPointer = -200;     ///< no place for a context; internal
