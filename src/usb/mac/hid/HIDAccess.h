#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "ground/DeviceRecords.h"

struct HidDevice;

/// Values of `HIDAccess::threadState`.
constexpr int32_t kNoReadThread = -1;
constexpr int32_t kReadThreadRuns = 0;
constexpr int32_t kReadThreadStops = 1;
constexpr int32_t kReadThreadEnded = 2;

/// Bytes of the ring of reports.
constexpr int32_t kRingBytes = 64'000;

/// Limit of each wait of Open and Close for a read thread, and of Close for writes, in milliseconds. Tests
/// lower it.
extern int64_t g_hidThreadWaitMs;

/// One HID device, opened through the platform's HID interface. While it is open, a read thread collects
/// input reports in a ring; Read takes them out, Write sends output reports. Callers serialise Open and
/// Close; one Read and one Write may run concurrently with each other and with the read thread.
///
/// newHIDAccess creates the object of a record, deleteHIDAccess frees it with the record. Objects that are
/// still open when the library is unloaded are closed, because their read threads run its code.
class HIDAccess {
 public:
    /// Opens the device and starts its read thread. Returns 0, -105 already open, -131 not found, -107 cannot
    /// be opened, -140 read thread cannot be started.
    int Open();
    /// Stops the read thread and closes the device. Busy-waits for the thread and for writes in progress; if
    /// they do not end in time, the platform's device stays open. Returns 0, or -109 when the object is not
    /// open or another thread is closing it.
    int Close();

    /// Copies the device's configuration descriptor, read from the platform, to `buffer` (`size` bytes). The
    /// device need not be open. Returns the bytes copied, or -131.
    /// Deliberate: of two devices with the same ids it may be the other one's descriptor.
    int GetConfigDescriptorBuffer(unsigned char* buffer, int size);

    /// Sets the report size in bytes. Returns 0, or -114 for a size outside 64 to 1024, which changes
    /// nothing.
    int SetPacketSize(int size);
    void SetFillValue(unsigned char value);

    /// Fills `buffer` with `size` bytes of input reports, each taken as packetSize bytes; the rest of the
    /// last one is dropped. Busy-waits for at most `timeout` milliseconds. Returns `size`; or -150, also when
    /// only part of the bytes has come, and at once for a time-out of 0 or less.
    /// Deliberate: a size of 0 drops reports until the time is up and returns -150.
    int Read(unsigned char* buffer, int size, int timeout);

    /// Sends `size` bytes as output reports of packetSize bytes, the last one padded with fillValue. Passes
    /// `timeout` (milliseconds) to the platform with each report; no platform uses it. Returns `size`, 0 for
    /// a size below 1, -109 not open, -112 when a report could not be sent.
    int Write(unsigned char* buffer, int size, int timeout);

    /// Takes one report out of the ring and copies the lesser of packetSize and `size` bytes of it. Returns
    /// the bytes copied; 0 when the ring is empty.
    int GetIncomingData(unsigned char* buffer, int size);

    /// Body of the read thread; the argument is unused. Returns null.
    void* ReadThreadInternal(void* unused);

    uint16_t idVendor;
    uint16_t idProduct;
    char sSerialNumber[kStringBytes];  ///< "?", which matches any serial number, for a device without one
    HidDevice* ppDeviceInterface;      ///< the open device; null while closed (shared field)
    /// Received reports in slots of packetSize bytes. A last slot that does not fit extends into
    /// reportBuffer.
    uint8_t ringBuffer[kRingBytes];
    uint8_t reportBuffer[kLargestPacket];  ///< receives incoming reports, where the platform needs a buffer
    int32_t writeIndex;                    ///< byte offset of the slot written last
    int32_t readIndex;                     ///< byte offset of the slot read last; both equal: ring empty
    int32_t spare;                         ///< not used
    int32_t threadState;                   ///< kNoReadThread ... kReadThreadEnded; shared field
    int32_t packetSize;                    ///< bytes of a report, 64 to 1024; shared field
    int32_t fillValue;                     ///< pad byte of a short last report, low 8 bits; shared field
    pthread_mutex_t mutex;                 ///< guards the two indices and the ring
    pthread_t readThread;
};

/// Internal state of a HIDAccess. Every HIDAccess is allocated as a HIDAccessRecord.
struct HIDAccessRecord final : HIDAccess {
    std::atomic<int32_t> writes;   ///< threads inside Write: they may be using the device
    std::atomic<int32_t> threads;  ///< read threads that have not ended: they are using the object
    HIDAccessRecord* nextOpen;     ///< chain of the open objects
};

inline HIDAccessRecord& privateSide(HIDAccess& access) {
    return static_cast<HIDAccessRecord&>(access);
}

/// Creates a closed object for the device, with an empty ring.
HIDAccess* newHIDAccess(uint16_t vendorId, uint16_t productId, const char* serialNumber, int32_t packetSize,
                        int32_t fillValue);
/// Frees a closed object. An object that is open, or that a thread is still using, is never freed. Null is
/// allowed.
void deleteHIDAccess(HIDAccess* access);

/// Entry point of the read thread: runs ReadThreadInternal on the given HIDAccess.
void* ReadThread(void* access);
