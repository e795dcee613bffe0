#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

struct HidDevice;

/// Values of `HIDAccess::threadState`.
constexpr int32_t kNoReadThread = -1;
constexpr int32_t kReadThreadRuns = 0;
constexpr int32_t kReadThreadStops = 1;
constexpr int32_t kReadThreadEnded = 2;

/// Bytes of the ring of reports, and of the buffer behind it; the largest and the smallest report.
constexpr int32_t kRingBytes = 64'000;
constexpr int32_t kLargestReport = 1'024;
constexpr int32_t kSmallestReport = 64;

/// How long Open waits for an earlier read thread and Close for the present one, milliseconds. Tests shorten
/// it.
extern int64_t g_hidThreadWaitMs;

/// One HID device, opened through the platform's HID interface. While it is open a read thread collects its
/// input reports in a ring; Read takes them out, Write sends output reports. Open, Close, Read and Write are
/// called on the callers' threads: Open and Close one at a time, one Read and one Write at once beside the
/// read thread.
///
/// The object lives as long as its record. newHIDAccess makes it, deleteHIDAccess ends it. Objects that are
/// open when the library is unloaded are closed then: their read threads run its code.
class HIDAccess {
 public:
    /// Opens the device and starts its read thread. Returns 0, -105 already open, -131 not found, -107 not
    /// openable, -140 the thread could not be started.
    int Open();
    /// Stops the read thread and closes the device; waits actively for the thread, and for writes that are
    /// under way. A device that they do not leave in time stays open. Returns 0, or -109 when not open or
    /// when another thread is closing it.
    int Close();

    /// Copies the device's configuration descriptor, read from the platform, to `buffer` (`size` bytes). The
    /// device need not be open. With two devices of the same ids it may be the other's: meant. Returns the
    /// bytes, or -131.
    int GetConfigDescriptorBuffer(unsigned char* buffer, int size);

    /// 0, or -114 for a size outside 64 to 1024, which changes nothing.
    int SetPacketSize(int size);
    void SetFillValue(unsigned char value);

    /// Fills `buffer` with `size` bytes of input reports, each taken as packetSize bytes; what is left of the
    /// last one is dropped. Waits actively, at most `timeout` milliseconds. Returns `size`, or -150: also
    /// when part of the bytes had come, and at once for a time-out of 0 or less. A size of 0 drops reports
    /// until the time is up: meant.
    int Read(unsigned char* buffer, int size, int timeout);

    /// Sends `size` bytes as output reports of packetSize bytes, the last one padded with fillValue. Each
    /// goes to the platform with `timeout` (milliseconds), which none of them looks at. Returns `size`, 0 for
    /// a size below 1, -109 not open, -112 when a report could not be sent.
    int Write(unsigned char* buffer, int size, int timeout);

    /// Takes one report out of the ring: copies the lesser of packetSize and `size` bytes and returns their
    /// number; 0 when there is none.
    int GetIncomingData(unsigned char* buffer, int size);

    /// Body of the read thread; the argument is not used. Null.
    void* ReadThreadInternal(void* unused);

    uint16_t idVendor;
    uint16_t idProduct;
    char sSerialNumber[128];       ///< "?" for a device without one: any serial number then
    HidDevice* ppDeviceInterface;  ///< the open device; null while closed (shared field)
    /// Received reports in slots of packetSize bytes. A last slot that does not fit runs over into
    /// reportBuffer.
    uint8_t ringBuffer[kRingBytes];
    uint8_t reportBuffer[kLargestReport];  ///< the platform puts each incoming report here
    int32_t writeIndex;                    ///< slot written last
    int32_t readIndex;                     ///< slot read last; the ring is empty when both are equal
    int32_t spare;                         ///< not used
    int32_t threadState;                   ///< kNoReadThread ... kReadThreadEnded; shared field
    int32_t packetSize;                    ///< bytes of a report, 64 to 1024; shared field
    int32_t fillValue;                     ///< pad byte of a short last report, low 8 bits; shared field
    pthread_mutex_t mutex;                 ///< guards the two indices and the ring
    pthread_t readThread;
};

/// What the library keeps beside a HIDAccess. Every one is made as one of these.
struct HIDAccessRecord final : HIDAccess {
    std::atomic<int32_t> writes;   ///< threads now inside Write: they may be using the device
    std::atomic<int32_t> threads;  ///< read threads that have not ended: they are using the object
    HIDAccessRecord* nextOpen;     ///< chain of the open objects
};

inline HIDAccessRecord& privateSide(HIDAccess& access) {
    return static_cast<HIDAccessRecord&>(access);
}

/// A closed object for the device, its ring empty.
HIDAccess* newHIDAccess(uint16_t vendorId, uint16_t productId, const char* serialNumber, int32_t packetSize,
                        int32_t fillValue);
/// Frees a closed object. One that is open, or that a thread is still using, stays as it is for good. Null is
/// allowed.
void deleteHIDAccess(HIDAccess* access);

/// Entry of the read thread: runs ReadThreadInternal on the HIDAccess given.
void* ReadThread(void* access);
