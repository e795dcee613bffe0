#include "hid/HidDeviceOperations.h"

#include <atomic>

namespace {

std::atomic<const HidDeviceOperations*> g_operations{nullptr};
std::atomic<libusb_context*> g_usbContext{nullptr};

}  // namespace

const HidDeviceOperations& hidOperations() {
    const HidDeviceOperations* operations = g_operations.load();
    return operations == nullptr ? platformHidOperations() : *operations;
}

void setHidOperations(const HidDeviceOperations& operations) {
    g_operations.store(&operations);
}

libusb_context* hidUsbContext() {
    return g_usbContext.load();
}

void setHidUsbContext(libusb_context* context) {
    g_usbContext.store(context);
}
