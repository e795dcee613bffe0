#include "CallArguments.h"

#include <libusb.h>

#include <map>
#include <mutex>

namespace {

std::mutex g_mutex;
bool g_notes = false;
std::map<std::string, std::vector<CallArguments::Call>> g_calls;

void note(const char* function, const CallArguments::Call& arguments) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_notes) {
        g_calls[function].push_back(arguments);
    }
}

void reset(bool notes) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_notes = notes;
    g_calls.clear();
}

}  // namespace

CallArguments::CallArguments() {
    reset(true);
}

CallArguments::~CallArguments() {
    reset(false);
}

std::vector<CallArguments::Call> CallArguments::of(const std::string& function) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls[function];
}

// A call whose arguments are a handle and an interface number.
#define NOTED_INTERFACE_CALL(function)                                         \
    int __real_##function(libusb_device_handle* handle, int interfaceNumber);  \
    int __wrap_##function(libusb_device_handle* handle, int interfaceNumber);  \
    int __wrap_##function(libusb_device_handle* handle, int interfaceNumber) { \
        note(#function, {interfaceNumber});                                    \
        return __real_##function(handle, interfaceNumber);                     \
    }

extern "C" {

NOTED_INTERFACE_CALL(libusb_claim_interface)
NOTED_INTERFACE_CALL(libusb_release_interface)
NOTED_INTERFACE_CALL(libusb_kernel_driver_active)
NOTED_INTERFACE_CALL(libusb_attach_kernel_driver)

int __real_libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                                   uint16_t value, uint16_t index, uint8_t* data, uint16_t length,
                                   unsigned int timeout);
int __real_libusb_handle_events_timeout_completed(libusb_context* context, timeval* period, int* completed);

int __wrap_libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                                   uint16_t value, uint16_t index, uint8_t* data, uint16_t length,
                                   unsigned int timeout) {
    note("libusb_control_transfer", {type, request, value, index, length, timeout});
    return __real_libusb_control_transfer(handle, type, request, value, index, data, length, timeout);
}

int __wrap_libusb_handle_events_timeout_completed(libusb_context* context, timeval* period, int* completed) {
    note("libusb_handle_events_timeout_completed", {period->tv_sec, period->tv_usec});
    return __real_libusb_handle_events_timeout_completed(context, period, completed);
}
}
