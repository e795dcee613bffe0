// Measures what an open HID device costs: the processor time that this process uses while the device is open
// and silent, and then while a read waits for a report that does not come. Percent of one core.

#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

template <class Action>
void printShare(const char* what, Action action) {
    const double usedBefore = processorSeconds();
    const auto start = std::chrono::steady_clock::now();
    action();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    std::cout << what << ": " << 100 * (processorSeconds() - usedBefore) / passed.count() << " % of one core"
              << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc == 2 ? std::atoi(argv[1]) : 0;
    if (seconds < 1) {
        std::cerr << "usage: hididle SECONDS   (the first HID device of vendor 0x6A5C)\n";
        return 2;
    }
    constexpr int32_t kVendor = 0x6A5C;
    libusb_context* context = nullptr;
    if (LibUSB_Initialize(&context) != 0) {
        std::cerr << "libusb does not start\n";
        return 1;
    }
    const uint32_t list = LibUSB_CreateDeviceList2(context, 1, &kVendor);
    tagUSB_DEVICE_ACCESS_ENTRY* device = LibUSB_EnumerateDeviceList(list, nullptr);
    while (device != nullptr && device->isHid == 0) {
        device = LibUSB_EnumerateDeviceList(list, device);
    }
    if (device == nullptr || LibUSB_OpenDevice(device) != 0) {
        std::cerr << "there is no HID device\n";
        return 1;
    }
    uint8_t report[64];
    printShare("open and silent", [&] { std::this_thread::sleep_for(std::chrono::seconds(seconds)); });
    printShare("waiting read", [&] { LibUSB_ReadInterruptPipe(device, 1, 64, seconds * 1000, report); });
    LibUSB_CloseDevice(device);
    LibUSB_ReleaseDeviceList(list);
    LibUSB_Release(&context);
    return 0;
}
