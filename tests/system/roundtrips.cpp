// Times round trips through the library, on whichever bus libusb finds: 64 bytes to an echo endpoint and
// back, by one thread or several at once, with the event thread running. Prints the distribution and how many
// took over 100 ms. Fails when a round trip failed, or took so long that a waiter must have missed its
// wake-up. For this the event thread has a period of a minute: no busy machine takes as long.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "ListedDevice.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int32_t kVendor = 0x6A5C;
constexpr int32_t kBytes = 64;
constexpr int32_t kTimeoutMs = 30'000;
/// A waiter that misses its wake-up is woken when this period of the event thread ends.
constexpr timeval kEventPeriod{60, 0};
constexpr double kLostWakeup = 1'000.0 * kTimeoutMs;

/// What one thread uses: a device, and the number of its endpoint pair.
struct Lane {
    const char* serial;
    int32_t endpoint;
    bool interrupt;
};
constexpr Lane kLanes[] = {
    {"ECHO0001", 1, false}, {"ECHO0001", 2, true}, {"ECHO0002", 1, false}, {"ECHO0002", 2, true}};

bool roundTrip(tagUSB_DEVICE_ACCESS_ENTRY& device, const Lane& lane, uint8_t stamp) {
    uint8_t sent[kBytes];
    uint8_t received[kBytes] = {};
    std::fill(std::begin(sent), std::end(sent), stamp);
    const auto write = lane.interrupt ? LibUSB_WriteInterruptPipe : LibUSB_WriteBulkPipe;
    const auto read = lane.interrupt ? LibUSB_ReadInterruptPipe : LibUSB_ReadBulkPipe;
    return write(&device, lane.endpoint, kBytes, kTimeoutMs, sent) == kBytes &&
           read(&device, lane.endpoint, kBytes, kTimeoutMs, received) == kBytes &&
           std::equal(std::begin(sent), std::end(sent), std::begin(received));
}

/// The times of `count` round trips; fewer when one failed.
std::vector<double> runLane(tagUSB_DEVICE_ACCESS_ENTRY& device, const Lane& lane, std::size_t count) {
    std::vector<double> times;
    times.reserve(count);
    while (times.size() < count) {
        const auto start = Clock::now();
        if (!roundTrip(device, lane, static_cast<uint8_t>(times.size()))) {
            break;
        }
        times.push_back(Microseconds(Clock::now() - start).count());
    }
    return times;
}

auto countOver(const std::vector<double>& times, double limit) {
    return std::count_if(times.begin(), times.end(), [limit](double time) { return time > limit; });
}

void print(std::vector<double> times, std::size_t threads) {
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        return times[std::min(times.size() - 1,
                              static_cast<std::size_t>(share * static_cast<double>(times.size())))];
    };
    std::cout << times.size() << " round trips, " << threads << " thread(s), microseconds: median " << at(0.5)
              << ", p99 " << at(0.99) << ", p99.9 " << at(0.999) << ", max " << times.back()
              << "; over 100 ms: " << countOver(times, 100'000) << std::endl;
}

/// Opens the lanes' devices, runs them all at once and prints. True when every round trip brought its bytes
/// back in time.
bool measure(uint32_t list, std::size_t count, std::size_t threads) {
    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> devices;
    for (std::size_t i = 0; i < threads; ++i) {
        devices.push_back(findDevice(list, kLanes[i].serial));
        const int32_t opened = devices.back() == nullptr ? -114 : LibUSB_OpenDevice(devices.back());
        if (opened != 0 && opened != -105) {
            std::cerr << kLanes[i].serial << " cannot be opened: " << opened << "\n";
            return false;
        }
    }
    std::vector<std::vector<double>> results(threads);
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i) {
        running.emplace_back([&, i] { results[i] = runLane(*devices[i], kLanes[i], count / threads); });
    }
    std::vector<double> all;
    for (std::size_t i = 0; i < threads; ++i) {
        running[i].join();
        all.insert(all.end(), results[i].begin(), results[i].end());
    }
    for (tagUSB_DEVICE_ACCESS_ENTRY* device : devices) {
        LibUSB_CloseDevice(device);
    }
    if (all.size() < count / threads * threads) {
        std::cerr << "a round trip failed after " << all.size() << "\n";
        return false;
    }
    print(all, threads);
    const auto late = countOver(all, kLostWakeup);
    if (late > 0) {
        std::cerr << late << " round trip(s) took longer than the time-out: a wake-up was lost\n";
    }
    return late == 0;
}

}  // namespace

extern "C" {

int __real_libusb_handle_events_timeout_completed(libusb_context* context, timeval* period, int* completed);

int __wrap_libusb_handle_events_timeout_completed(libusb_context* context, timeval*, int* completed) {
    timeval period = kEventPeriod;
    return __real_libusb_handle_events_timeout_completed(context, &period, completed);
}
}

int main(int argc, char** argv) {
    const long count = argc == 3 ? std::strtol(argv[1], nullptr, 10) : 0;
    const long threads = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 0;
    if (count < threads || threads < 1 || threads > static_cast<long>(std::size(kLanes))) {
        std::cerr << "usage: roundtrips COUNT THREADS   (1 to " << std::size(kLanes) << " threads)\n";
        return 2;
    }
    libusb_context* context = nullptr;
    if (LibUSB_Initialize(&context) != 0) {
        std::cerr << "libusb does not start\n";
        return 1;
    }
    const uint32_t list = LibUSB_CreateDeviceList2(context, 1, &kVendor);
    const bool passed = measure(list, static_cast<std::size_t>(count), static_cast<std::size_t>(threads));
    LibUSB_ReleaseDeviceList(list);
    LibUSB_Release(&context);
    return passed ? 0 : 1;
}
