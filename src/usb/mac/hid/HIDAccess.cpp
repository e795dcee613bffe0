#include "hid/HIDAccess.h"

#include <cstdio>
#include <mutex>

#include "ground/Immortal.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"
#include "hid/HidDeviceOperations.h"
#include "hid/TickCount.h"

int64_t g_hidThreadWaitMs = 20'000;

namespace {

/// The maker's second vendor id: Open sets its devices to reports of this size with this pad byte.
constexpr uint16_t kLargeReportVendor = 0x6A5D;
constexpr int32_t kLargeReportBytes = 512;
constexpr int32_t kLargeReportFill = 0;

/// Busy-waits while the condition holds, for at most g_hidThreadWaitMs.
template <class Condition>
void waitWhile(Condition waiting) {
    const int64_t end = wallClockMs() + g_hidThreadWaitMs;
    while (waiting() && wallClockMs() < end) {
    }
}

/// The open objects. The one thread that closes an object removes it.
struct OpenObjects {
    std::mutex mutex;
    HIDAccessRecord* first = nullptr;

    void add(HIDAccessRecord& access) {
        const std::lock_guard lock(mutex);
        access.nextOpen = first;
        first = &access;
    }
    /// Removes an object. Returns false when it is not in the list.
    bool take(const HIDAccessRecord& access) {
        const std::lock_guard lock(mutex);
        HIDAccessRecord** place = &first;
        while (*place != nullptr && *place != &access) {
            place = &(*place)->nextOpen;
        }
        const bool found = *place != nullptr;
        if (found) {
            *place = access.nextOpen;
        }
        return found;
    }
    HIDAccessRecord* any() {
        const std::lock_guard lock(mutex);
        return first;
    }
};
Immortal<OpenObjects> g_open;

/// Closes the open objects when the library is unloaded: a read thread must not outlive its code.
struct OpenObjectsOwner {
    ~OpenObjectsOwner() {
        while (HIDAccessRecord* access = g_open.object.any()) {
            access->Close();
        }
    }
} g_openObjectsOwner;

/// Asks the read thread to stop and waits for its end. Returns false when it does not end in time.
bool endReadThread(HIDAccess& access) {
    waitWhile([&] { return loadShared(access.threadState) == kNoReadThread; });
    // A thread that has already ended keeps that state; any other is asked to stop.
    for (int32_t state : {kNoReadThread, kReadThreadRuns}) {
        compareExchangeShared(access.threadState, state, kReadThreadStops);
    }
    waitWhile([&] { return loadShared(access.threadState) != kReadThreadEnded; });
    return loadShared(access.threadState) == kReadThreadEnded;
}

}  // namespace

HIDAccess* newHIDAccess(uint16_t vendorId, uint16_t productId, const char* serialNumber, int32_t packetSize,
                        int32_t fillValue) {
    auto* access = new HIDAccessRecord{};
    access->idVendor = vendorId;
    access->idProduct = productId;
    std::snprintf(access->sSerialNumber, sizeof access->sSerialNumber, "%s",
                  serialNumber[0] == '\0' ? "?" : serialNumber);
    access->threadState = kNoReadThread;
    access->packetSize = packetSize;
    access->fillValue = fillValue;
    pthread_mutex_init(&access->mutex, nullptr);
    return access;
}

void deleteHIDAccess(HIDAccess* access) {
    const bool unused = access != nullptr && loadShared(access->ppDeviceInterface) == nullptr &&
                        privateSide(*access).threads.load() == 0 && privateSide(*access).writes.load() == 0;
    if (unused) {
        pthread_mutex_destroy(&access->mutex);
        delete &privateSide(*access);
    }
}

int HIDAccess::Open() {
    if (loadShared(ppDeviceInterface) != nullptr) {
        return kAlreadyOpen;
    }
    waitWhile([this] { return loadShared(threadState) != kNoReadThread; });
    HidDevice* device = nullptr;
    const HidOpenResult opened = hidOperations().open(idVendor, idProduct, sSerialNumber, &device);
    if (opened != HidOpenResult::opened) {
        return opened == HidOpenResult::notFound ? kNotAvailable : kOpenFailed;
    }
    storeShared(ppDeviceInterface, device);
    if (idVendor == kLargeReportVendor) {
        storeShared(packetSize, kLargeReportBytes);
        storeShared(fillValue, kLargeReportFill);
    }
    privateSide(*this).threads.fetch_add(1);
    if (pthread_create(&readThread, nullptr, ReadThread, this) != 0) {
        privateSide(*this).threads.fetch_sub(1);
        hidOperations().close(device);
        storeShared(ppDeviceInterface, nullptr);
        return kHidThreadFailed;
    }
    g_open.object.add(privateSide(*this));
    return 0;
}

int HIDAccess::Close() {
    if (!g_open.object.take(privateSide(*this))) {
        return kNotOpen;
    }
    HidDevice* device = loadShared(ppDeviceInterface);
    const bool ended = endReadThread(*this);
    // Deliberate: stops the calling thread's run loop; the read thread has left its own by now.
    hidOperations().stopCallersLoop();
    // fetch_add(0), not a load: additions to `writes` have one order, so either this one sees the count of a
    // write, or that write sees that the device is gone.
    storeShared(ppDeviceInterface, nullptr);
    waitWhile([this] { return privateSide(*this).writes.fetch_add(0) != 0; });
    if (ended) {
        pthread_join(readThread, nullptr);
    } else {
        pthread_detach(readThread);
    }
    // A device that is still in use is never closed.
    if (ended && privateSide(*this).writes.load() == 0) {
        hidOperations().close(device);
    }
    storeShared(threadState, kNoReadThread);
    return 0;
}

int HIDAccess::GetConfigDescriptorBuffer(unsigned char* buffer, int size) {
    return hidOperations().readConfigDescriptor(idVendor, idProduct, buffer, size);
}

int HIDAccess::SetPacketSize(int size) {
    if (size < kSmallestPacket || size > kLargestPacket) {
        return kBadArgument;
    }
    storeShared(packetSize, size);
    return 0;
}

void HIDAccess::SetFillValue(unsigned char value) {
    storeShared(fillValue, value);
}
