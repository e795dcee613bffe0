#include "HotplugUsb/HotplugUsb.h"

#include <libusb.h>

#include <chrono>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

std::map<int32_t, int32_t> g_hotPlugCallback;
std::atomic<bool> g_eventLoopRunning{false};
std::thread g_eventLoopThread;

namespace {

constexpr timeval kEventPeriod{1, 0};

/// The context whose events the loop handles; null while it idles.
std::atomic<libusb_context*> g_loopContext{nullptr};

/// A program that ends without a release must not end in the thread object's own destructor.
struct EventLoopOwner {
    ~EventLoopOwner() { deinitHotplugUsb(); }
} g_eventLoopOwner;

void deregister(libusb_context* context, int32_t vendorId, int32_t callbackHandle) {
    debug_log("[unregisterForHotplug]: callbackHandle: %d for vendor_id: %x", callbackHandle,
              static_cast<unsigned int>(vendorId));
    libusb_hotplug_deregister_callback(context, callbackHandle);
}

}  // namespace

void hotplugEventLoop(libusb_context* context) {
    g_loopContext.store(context);
    g_eventLoopRunning.exchange(true);
    while (g_eventLoopRunning.load()) {
        if (leaveEventsToWaiters()) {
            continue;
        }
        // Looked at once: a context that is adopted during the pass has nothing to do with its result.
        libusb_context* current = g_loopContext.load();
        const int result = handleEventsFor(current, kEventPeriod);
        if (result < 0 && current != nullptr) {
            debug_log("libusb_handle_events() failed: %s", libusb_error_name(result));
        }
    }
}

int32_t initHotplugUsb(libusb_context* context) {
    if (g_eventLoopRunning.load()) {
        libusb_context* idle = nullptr;
        g_loopContext.compare_exchange_strong(idle, context);
        return -1;
    }
    g_eventLoopThread = std::thread(hotplugEventLoop, context);
    while (!g_eventLoopRunning.load()) {
        std::this_thread::yield();
    }
    return 0;
}

void deinitHotplugUsb() {
    if (!g_eventLoopRunning.load()) {
        return;
    }
    g_eventLoopRunning.exchange(false);
    libusb_context* context = g_loopContext.load();
    if (context != nullptr) {
        libusb_interrupt_event_handler(context);
    }
    g_eventLoopThread.join();
}

int hotplug_callback(libusb_context* context, libusb_device* device, int /*event*/, void* /*userData*/) {
    libusb_device_descriptor descriptor{};
    const int result = libusb_get_device_descriptor(device, &descriptor);
    if (result != LIBUSB_SUCCESS) {
        return result;
    }
    tagUSB_DEVICE_LIST* list = find_device_list(context, descriptor.idVendor);
    if (list != nullptr) {
        list->changePending.exchange(true);
    }
    return 0;
}

int32_t registerForHotplug(libusb_context* context, int32_t vendorId) {
    if (g_hotPlugCallback.count(vendorId) != 0) {
        return -1;
    }
    const auto onEvent = [](libusb_context* of, libusb_device* device, libusb_hotplug_event event,
                            void* userData) { return hotplug_callback(of, device, event, userData); };
    libusb_hotplug_callback_handle handle = 0;
    // libusb would take a null context for its default one.
    const int result =
        context == nullptr
            ? LIBUSB_ERROR_INVALID_PARAM
            : libusb_hotplug_register_callback(
                  context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
                  vendorId, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, onEvent, nullptr, &handle);
    if (result != LIBUSB_SUCCESS) {
        debug_log("Error registering hotplug callback");
        return -1;
    }
    g_hotPlugCallback[vendorId] = handle;
    debug_log("[registerForHotplug]: registered callback %d for vendor: %x", handle,
              static_cast<unsigned int>(vendorId));
    return 0;
}

int32_t unregisterForHotplug(libusb_context* context, int32_t vendorId) {
    const auto found = g_hotPlugCallback.find(vendorId);
    if (found == g_hotPlugCallback.end()) {
        return -1;
    }
    deregister(context, vendorId, found->second);
    return 0;
}

void releaseHotplugCallbacks(libusb_context* context) {
    for (const auto& [vendorId, handle] : g_hotPlugCallback) {
        deregister(context, vendorId, handle);
    }
    g_hotPlugCallback.clear();
}
