// Reports of a HIDAccess: the ring, the read thread, Read and Write.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ground/ResultCodes.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"
#include "hid/HidDeviceOperations.h"
#include "hid/TickCount.h"

namespace {

class Locked {
 public:
    explicit Locked(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Locked() { pthread_mutex_unlock(&mutex_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

 private:
    pthread_mutex_t& mutex_;
};

/// Counts the calling thread as inside Write. Close does not close the device while a thread is counted.
class ActiveWrite {
 public:
    explicit ActiveWrite(HIDAccess& access) : writes_(privateSide(access).writes) { writes_.fetch_add(1); }
    ~ActiveWrite() { writes_.fetch_sub(1); }
    ActiveWrite(const ActiveWrite&) = delete;
    ActiveWrite& operator=(const ActiveWrite&) = delete;

 private:
    std::atomic<int32_t>& writes_;
};

int32_t slotBehind(int32_t index, int32_t packetSize) {
    const int32_t next = index + packetSize;
    return next >= kRingBytes ? 0 : next;
}

/// The bytes of a slot. The last slot may extend past the ring into the report buffer, so the address is
/// computed from the object, not from the ring.
uint8_t* slotBytes(HIDAccess& access, int32_t index) {
    return reinterpret_cast<uint8_t*>(&access) + offsetof(HIDAccess, ringBuffer) + index;
}

/// Takes the oldest unread report: copies at most `wanted` bytes of it and drops the rest. Returns the bytes
/// copied; 0 when there is no report.
int32_t takeReport(HIDAccess& access, uint8_t* buffer, int32_t wanted) {
    const Locked lock(access.mutex);
    if (access.writeIndex == access.readIndex) {
        return 0;
    }
    const int32_t packetSize = loadShared(access.packetSize);
    const int32_t copied = std::max(std::min(wanted, packetSize), 0);
    access.readIndex = slotBehind(access.readIndex, packetSize);
    std::copy_n(slotBytes(access, access.readIndex), copied, buffer);
    return copied;
}

/// Stores a report in the ring as packetSize bytes, whatever its length. A full ring drops its oldest report.
void InputReportCallback(void* context, const uint8_t* report, int32_t /*length*/) {
    HIDAccess& access = *static_cast<HIDAccess*>(context);
    const Locked lock(access.mutex);
    const int32_t packetSize = loadShared(access.packetSize);
    access.writeIndex = slotBehind(access.writeIndex, packetSize);
    // Source and slot may overlap: the last slot may extend into the report buffer.
    std::memmove(slotBytes(access, access.writeIndex), report, static_cast<size_t>(packetSize));
    if (access.writeIndex == access.readIndex) {
        access.readIndex = slotBehind(access.readIndex, packetSize);
    }
}

/// True while `device` is the open device of the object. False after a Close that gave up waiting for this
/// thread, to which threadState then no longer belongs.
bool isCurrent(const HIDAccess& access, const HidDevice* device) {
    return loadShared(access.ppDeviceInterface) == device;
}

/// Runs the device's event source until a stop is requested or reported.
void runEvents(HIDAccess& access, HidDevice* device) {
    while (isCurrent(access, device) && loadShared(access.threadState) == kReadThreadRuns) {
        if (!hidOperations().runPeriod(device)) {
            compareExchangeShared(access.threadState, kReadThreadRuns, kReadThreadStops);
        }
    }
}

}  // namespace

void* ReadThread(void* access) {
    auto* object = static_cast<HIDAccess*>(access);
    object->ReadThreadInternal(nullptr);
    privateSide(*object).threads.fetch_sub(1);
    return nullptr;
}

void* HIDAccess::ReadThreadInternal(void* /*unused*/) {
    HidDevice* device = loadShared(ppDeviceInterface);
    if (device == nullptr) {
        return nullptr;
    }
    int32_t lastState = kNoReadThread;
    if (hidOperations().startInput(device, reportBuffer, loadShared(packetSize), InputReportCallback, this)) {
        // A stop that was requested earlier must not be overwritten.
        if (isCurrent(*this, device)) {
            compareExchangeShared(threadState, kNoReadThread, kReadThreadRuns);
        }
        runEvents(*this, device);
        hidOperations().stopInput(device);
        lastState = kReadThreadStops;
    }
    if (isCurrent(*this, device)) {
        // Compare-exchange, not store: a Close that gives up right after the check above resets threadState,
        // and a store would leave kReadThreadEnded there for the next Open.
        for (int32_t state : {lastState, kReadThreadStops}) {
            compareExchangeShared(threadState, state, kReadThreadEnded);
        }
    }
    return nullptr;
}

int HIDAccess::GetIncomingData(unsigned char* buffer, int size) {
    return takeReport(*this, buffer, size);
}

int HIDAccess::Read(unsigned char* buffer, int size, int timeout) {
    // Deliberate: a time-out of 0 or less returns -150 at once, even when reports are waiting.
    if (timeout <= 0) {
        return kTimedOut;
    }
    const int64_t deadline = wallClockMs() + timeout;
    int32_t total = 0;
    do {
        const int32_t copied = takeReport(*this, buffer + total, size - total);
        total += copied;
        if (copied > 0 && total == size) {
            return total;
        }
    } while (wallClockMs() < deadline);
    return kTimedOut;
}

int HIDAccess::Write(unsigned char* buffer, int size, int timeout) {
    uint8_t report[kLargestPacket];
    const ActiveWrite counted(*this);
    if (loadShared(ppDeviceInterface) == nullptr) {
        return kNotOpen;
    }
    const int32_t pad = loadShared(fillValue) & 0xFF;
    int32_t sent = 0;
    while (sent < size) {
        const int32_t reportSize = loadShared(packetSize);
        if (reportSize <= 0) {
            break;
        }
        const int32_t share = std::min(reportSize, size - sent);
        std::memcpy(report, buffer + sent, static_cast<size_t>(share));
        std::memset(report + share, pad, static_cast<size_t>(reportSize - share));
        HidDevice* device = loadShared(ppDeviceInterface);  // Close may have run since the last report
        if (device == nullptr || !hidOperations().sendReport(device, report, reportSize, timeout)) {
            return kWriteFailed;
        }
        sent += share;
    }
    return sent;
}
