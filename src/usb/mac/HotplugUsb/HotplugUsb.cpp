#include "HotplugUsb/HotplugUsb.h"

#include <libusb.h>

#include <condition_variable>
#include <mutex>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "ground/Immortal.h"

std::atomic<bool> g_eventLoopRunning{false};

namespace {

constexpr timeval kEventPeriod{1, 0};

Immortal<std::map<int32_t, int32_t>> g_callbacks;

struct EventLoop {
    std::thread thread;   ///< must be joined before it is destroyed, or the program terminates
    std::mutex stopping;  ///< held by the thread that stops the loop, until the event thread has ended
    std::mutex mutex;     ///< guards `context`, and each change of g_eventLoopRunning to false
    std::condition_variable changed;    ///< signalled when the loop gets a context or is stopped
    libusb_context* context = nullptr;  ///< context whose events the loop handles; null while it has none
};
Immortal<EventLoop> g_loop;

/// Waits until the loop has a context or is stopped. Returns the context; null when it has none.
libusb_context* nextContext() {
    std::unique_lock lock(g_loop.object.mutex);
    g_loop.object.changed.wait(lock,
                               [] { return g_loop.object.context != nullptr || !g_eventLoopRunning.load(); });
    return g_loop.object.context;
}

/// Gives the loop this context if it has none.
void adopt(libusb_context* context) {
    const std::lock_guard lock(g_loop.object.mutex);
    if (g_loop.object.context == nullptr) {
        g_loop.object.context = context;
        g_loop.object.changed.notify_all();
    }
}

/// Asks the loop to end and wakes it.
void stopLoop() {
    const std::lock_guard lock(g_loop.object.mutex);
    g_eventLoopRunning.exchange(false);
    g_loop.object.changed.notify_all();
    if (g_loop.object.context != nullptr) {
        libusb_interrupt_event_handler(g_loop.object.context);
    }
}

/// Stops the event thread when the library is unloaded without a release: a thread must not outlive its code.
struct EventLoopOwner {
    ~EventLoopOwner() { deinitHotplugUsb(); }
} g_eventLoopOwner;

void deregister(libusb_context* context, int32_t vendorId, int32_t callbackHandle) {
    debug_log("[unregisterForHotplug]: callbackHandle: %d for vendor_id: %x", callbackHandle,
              static_cast<unsigned int>(vendorId));
    libusb_hotplug_deregister_callback(context, callbackHandle);
}

}  // namespace

std::map<int32_t, int32_t>& g_hotPlugCallback = g_callbacks.object;
std::thread& g_eventLoopThread = g_loop.object.thread;

void hotplugEventLoop(libusb_context* context) {
    g_loop.object.context = context;  // not shared before the loop runs
    g_eventLoopRunning.exchange(true);
    while (g_eventLoopRunning.load()) {
        if (leaveEventsToWaiters()) {
            continue;
        }
        libusb_context* current = nextContext();
        const int result = current == nullptr ? LIBUSB_SUCCESS : handleEventsFor(current, kEventPeriod);
        if (result < 0) {
            debug_log("libusb_handle_events() failed: %s", libusb_error_name(result));
        }
    }
}

int32_t initHotplugUsb(libusb_context* context) {
    if (g_eventLoopRunning.load()) {
        adopt(context);
        return -1;
    }
    g_eventLoopThread = std::thread(hotplugEventLoop, context);
    while (!g_eventLoopRunning.load()) {
        std::this_thread::yield();
    }
    return 0;
}

void deinitHotplugUsb() {
    // The program may exit during a release; the second caller waits for the end of the thread, too.
    const std::lock_guard stopping(g_loop.object.stopping);
    if (!g_eventLoopRunning.load()) {
        return;
    }
    stopLoop();
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
    const auto [place, isNew] = g_hotPlugCallback.try_emplace(vendorId);
    if (!isNew) {
        return -1;
    }
    const auto onEvent = [](libusb_context* of, libusb_device* device, libusb_hotplug_event event,
                            void* userData) { return hotplug_callback(of, device, event, userData); };
    libusb_hotplug_callback_handle handle = 0;
    // libusb treats a null context as its default context.
    const int result =
        context == nullptr
            ? LIBUSB_ERROR_INVALID_PARAM
            : libusb_hotplug_register_callback(
                  context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
                  vendorId, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, onEvent, nullptr, &handle);
    if (result != LIBUSB_SUCCESS) {
        g_hotPlugCallback.erase(place);
        debug_log("Error registering hotplug callback");
        return -1;
    }
    place->second = handle;
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

void forgetHotplug(libusb_context* context, int32_t vendorId) {
    unregisterForHotplug(context, vendorId);
    g_hotPlugCallback.erase(vendorId);
}

void releaseHotplugCallbacks(libusb_context* context) {
    for (const auto& [vendorId, handle] : g_hotPlugCallback) {
        deregister(context, vendorId, handle);
    }
    g_hotPlugCallback.clear();
}
