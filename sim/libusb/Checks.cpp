#include "Checks.h"

namespace sim {

namespace {

template <class Object, class Given>
Object* check(const char* function, const char* kind, const Registry<Object>& registry, Given* given) {
    Object* found = registry.find(given);
    if (found == nullptr) {
        const char* why = given == nullptr               ? " is null"
                          : registry.wasGivenBack(given) ? " is used after it was freed"
                                                         : " was never handed out";
        violation(function, kind + std::string(why));
    }
    return found;
}

}  // namespace

void violation(const char* function, const std::string& text) {
    simbus::Bus::instance().addViolation(std::string(function) + ": " + text);
}

std::string nameOf(const libusb_device& device) {
    return device.info->serial.empty() ? device.info->id : device.info->serial;
}

libusb_context* checkContext(const char* function, libusb_context* given) {
    State& all = state();
    if (given == nullptr) {
        if (all.defaultContext != nullptr) {
            return all.defaultContext;
        }
        violation(function, all.implicitDefault != nullptr
                                ? "null context, answered by the first one made, for want of a default one"
                                : "null context, and no default one");
        return all.implicitDefault;
    }
    for (const auto& context : all.contexts) {
        if (context.get() == given) {
            if (context->inUse) {
                return given;
            }
            violation(function, "context is used after libusb_exit");
            return nullptr;
        }
    }
    violation(function, "context was never handed out");
    return nullptr;
}

libusb_device* checkDevice(const char* function, libusb_device* given) {
    return check(function, "device", state().devices, given);
}

libusb_device_handle* checkHandle(const char* function, libusb_device_handle* given) {
    return check(function, "handle", state().handles, given);
}

TransferRecord* checkTransfer(const char* function, libusb_transfer* given) {
    return check(function, "transfer", state().transfers, given);
}

bool checkMayWait(const char* function) {
    if (threadState().inCallback) {
        violation(function, "called from inside a callback, where nothing may wait or handle events");
        return false;
    }
    return true;
}

void checkLeftBehind(const char* function, const libusb_context& context) {
    for (const libusb_device_handle* handle : context.handles) {
        violation(function, "device " + nameOf(*handle->device) + " is still open");
    }
    if (!context.flying.empty()) {
        violation(function, std::to_string(context.flying.size()) + " transfer(s) still in flight");
    }
    if (context.eventsOwner != std::thread::id()) {
        violation(function, "a thread still handles events or holds the events lock");
    }
    state().lists.forEachInUse([&](const DeviceListRecord& list) {
        if (list.context != &context) {
            return;
        }
        if (list.devices.front() == nullptr) {
            simbus::Bus::instance().addToTally("empty device lists not freed", 1);
        } else {
            violation(function, "a device list was not freed");
        }
    });
    state().devices.forEachInUse([&](const libusb_device& device) {
        if (device.context == &context && device.callerReferences != 0) {
            violation(function, "device " + nameOf(device) + " has " +
                                    std::to_string(device.callerReferences) +
                                    " reference(s) of the caller left");
        }
    });
}

}  // namespace sim
