#include <algorithm>

#include "Checks.h"
#include "Devices.h"
#include "Events.h"

namespace sim {

namespace {

bool matches(const HotplugCallback& callback, const libusb_device_descriptor& descriptor, int event) {
    const auto fits = [](int wanted, int actual) {
        return wanted == LIBUSB_HOTPLUG_MATCH_ANY || wanted == actual;
    };
    return (callback.events & event) != 0 && fits(callback.vendorId, descriptor.idVendor) &&
           fits(callback.productId, descriptor.idProduct) &&
           fits(callback.deviceClass, descriptor.bDeviceClass);
}

/// Calls the callback with no lock held.
int call(libusb_context& context, const HotplugCallback& callback, libusb_device& device,
         libusb_hotplug_event event) {
    ThreadState& thread = threadState();
    const bool before = thread.inCallback;
    thread.inCallback = true;
    const int result = callback.function(&context, &device, event, callback.userData);
    thread.inCallback = before;
    return result;
}

void drop(libusb_context& context, const std::shared_ptr<HotplugCallback>& callback) {
    callback->removed = true;
    auto& all = context.callbacks;
    all.erase(std::remove(all.begin(), all.end(), callback), all.end());
}

void dispatch(libusb_context& context, const HotplugMessage& message, StateLock& lock) {
    const auto callbacks = context.callbacks;
    for (const auto& callback : callbacks) {
        if (callback->removed || !matches(*callback, message.device->descriptor, message.event)) {
            continue;
        }
        lock.unlock();
        const int result = call(context, *callback, *message.device, message.event);
        lock.lock();
        if (result != 0) {
            drop(context, callback);
        }
    }
}

bool isSane(int events, int flags, int vendorId, int productId, int deviceClass,
            libusb_hotplug_callback_fn function) {
    constexpr int kAllEvents = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
    const auto fits = [](int value, int most) {
        return value == LIBUSB_HOTPLUG_MATCH_ANY || (value >= 0 && value <= most);
    };
    return events != 0 && (events & ~kAllEvents) == 0 && (flags & ~LIBUSB_HOTPLUG_ENUMERATE) == 0 &&
           fits(vendorId, 0xFFFF) && fits(productId, 0xFFFF) && fits(deviceClass, 0xFF) &&
           function != nullptr;
}

/// Calls a new callback for the devices that are already connected. Its result is ignored.
void enumerate(libusb_context& context, const HotplugCallback& callback, StateLock& lock) {
    const auto devices = context.devices;
    std::for_each(devices.begin(), devices.end(), [](libusb_device* device) { holdDevice(*device); });
    for (libusb_device* device : devices) {
        if (matches(callback, device->descriptor, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED)) {
            lock.unlock();
            call(context, callback, *device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
            lock.lock();
        }
        releaseDevice(*device);
    }
}

}  // namespace

void processHotplug(libusb_context& context) {
    StateLock lock(state().mutex);
    context.interrupted = context.deregistered = false;
    std::deque<HotplugMessage> messages;
    messages.swap(context.messages);
    for (const HotplugMessage& message : messages) {
        dispatch(context, message, lock);
        if (message.event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) {
            releaseDevice(*message.device);
        }
    }
}

}  // namespace sim

using sim::StateLock;

int libusb_hotplug_register_callback(libusb_context* given, int events, int flags, int vendorId,
                                     int productId, int deviceClass, libusb_hotplug_callback_fn function,
                                     void* userData, libusb_hotplug_callback_handle* handle) {
    SIM_ENTER();
    if (!sim::isSane(events, flags, vendorId, productId, deviceClass, function)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    auto callback = std::make_shared<sim::HotplugCallback>(sim::HotplugCallback{
        context->nextCallback++, events, vendorId, productId, deviceClass, function, userData});
    context->callbacks.insert(context->callbacks.begin(), callback);
    if ((flags & LIBUSB_HOTPLUG_ENUMERATE) != 0 && (events & LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED) != 0) {
        sim::enumerate(*context, *callback, lock);
    }
    if (handle != nullptr) {
        *handle = callback->handle;
    }
    return LIBUSB_SUCCESS;
}

void libusb_hotplug_deregister_callback(libusb_context* given, libusb_hotplug_callback_handle handle) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return;
    }
    const auto callbacks = context->callbacks;
    for (const auto& callback : callbacks) {
        if (callback->handle == handle) {
            sim::drop(*context, callback);
            context->deregistered = true;
            sim::wakeHandler(*context);
        }
    }
}

void* libusb_hotplug_get_user_data(libusb_context* given, libusb_hotplug_callback_handle handle) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return nullptr;
    }
    const auto& all = context->callbacks;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& callback) { return callback->handle == handle; });
    return found == all.end() ? nullptr : (*found)->userData;
}
