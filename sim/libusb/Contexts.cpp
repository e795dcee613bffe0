// Contexts: their devices, from libusb_init to libusb_exit.
#include "Contexts.h"

#include <algorithm>
#include <iterator>

#include "Checks.h"
#include "Claims.h"
#include "Devices.h"
#include "Transfers.h"

namespace sim {

namespace {

void onBusNews(const simbus::DeviceInfoPtr& info, bool arrived) {
    const StateLock lock(state().mutex);
    for (const auto& context : state().contexts) {
        if (!context->inUse || context->options.withoutDevices) {
            continue;
        }
        if (arrived) {
            deviceArrived(*context, info, true);
        } else {
            deviceLeft(*context, *info);
        }
    }
}

/// Reuses the address of an ended context, as a program's allocator might.
libusb_context& makeContext() {
    auto& contexts = state().contexts;
    const auto ended = std::find_if(contexts.begin(), contexts.end(), [](const auto& context) {
        return !context->inUse && context->eventsOwner == std::thread::id();
    });
    libusb_context& context =
        ended != contexts.end() ? **ended : *contexts.emplace_back(std::make_unique<libusb_context>());
    context.inUse = true;
    context.nextCallback = 1;
    context.pollFdRemoved = nullptr;
    context.interrupted = context.deregistered = context.sourcesChanged = false;
    return context;
}

void forgetDevices(libusb_context& context) {
    std::vector<libusb_device*> devices;
    state().devices.forEachInUse([&](libusb_device& device) {
        if (device.context == &context) {
            devices.push_back(&device);
        }
    });
    std::for_each(devices.begin(), devices.end(),
                  [](libusb_device* device) { state().devices.retire(device); });
    context.devices.clear();
}

std::vector<TransferRecord*> endContext(const char* function, libusb_context& context) {
    checkLeftBehind(function, context);
    auto abandoned = abandonTransfers(context, [](const TransferRecord&) { return true; });
    state().transfers.forEachInUse([&](TransferRecord& record) {
        if (record.device != nullptr && record.device->context == &context) {
            releaseDevice(*record.device);
            record.device = nullptr;
        }
    });
    for (libusb_device_handle* handle : context.handles) {
        dropClaims(*handle);
        state().handles.retire(handle);
    }
    context.handles.clear();
    // A later context at this address is not related to the lists of this one.
    state().lists.forEachInUse([&](DeviceListRecord& list) {
        if (list.context == &context) {
            list.context = nullptr;
        }
    });
    context.pollFds.reset();
    context.polled = false;
    context.callbacks.clear();
    context.messages.clear();
    forgetDevices(context);
    context.inUse = false;
    context.wake.notify_all();
    return abandoned;
}

}  // namespace

int startContext(libusb_context** given, const Options& options) {
    auto& bus = simbus::Bus::instance();
    if (bus.lacksScenario()) {
        return LIBUSB_ERROR_OTHER;  // an empty bus would look as if all devices had left
    }
    static const int subscription = bus.subscribe(onBusNews);
    static_cast<void>(subscription);  // kept for the lifetime of the process
    StateLock lock(state().mutex);
    State& all = state();
    if (given == nullptr && all.defaultContextUsers > 0) {
        ++all.defaultContextUsers;
        return LIBUSB_SUCCESS;
    }
    libusb_context& context = makeContext();
    // From now on, subscriber calls wait for our lock; those about devices that are already in this list are
    // skipped.
    context.options = options;
    if (!options.withoutDevices) {
        for (const auto& info : bus.devices()) {
            deviceArrived(context, info, false);
        }
    }
    if (given == nullptr) {
        all.defaultContext = &context;
        all.defaultContextUsers = 1;
    } else {
        *given = &context;
        if (all.implicitDefault == nullptr) {
            all.implicitDefault = &context;
        }
    }
    lock.unlock();
    log(context, LIBUSB_LOG_LEVEL_DEBUG, "libusb_init", "a context of the simulated bus");
    return LIBUSB_SUCCESS;
}

}  // namespace sim

using sim::StateLock;

int libusb_init(libusb_context** given) {
    SIM_ENTER();
    sim::Options options;
    {
        const StateLock lock(sim::state().mutex);
        options = sim::startingOptions();
    }
    return sim::startContext(given, options);
}

void libusb_exit(libusb_context* given) {
    SIM_ENTER_VOID();
    std::vector<sim::TransferRecord*> abandoned;
    std::vector<libusb_pollfd> pollFds;
    libusb_pollfd_removed_cb removed = nullptr;
    void* userData = nullptr;
    {
        const StateLock lock(sim::state().mutex);
        sim::State& all = sim::state();
        if (given == nullptr && all.defaultContext == nullptr) {
            sim::violation(__func__, "null context, and no default one");
            return;
        }
        libusb_context* context = sim::checkContext(__func__, given);
        if (context == nullptr || (given == nullptr && --all.defaultContextUsers > 0)) {
            return;
        }
        if (all.defaultContext == context) {
            all.defaultContext = nullptr;
            all.defaultContextUsers = 0;
        }
        if (all.implicitDefault == context) {
            all.implicitDefault = nullptr;
        }
        removed = context->pollFdRemoved;
        userData = context->pollFdUserData;
        if (removed != nullptr) {
            pollFds = context->pollFds->all();
        }
        abandoned = sim::endContext(__func__, *context);
    }
    for (const libusb_pollfd& each : pollFds) {
        removed(each.fd, userData);
    }
    sim::stopOnBus(abandoned);
}

const libusb_version* libusb_get_version() {
    SIM_ENTER_VOID();
    static const libusb_version version = {1, 0, 30, 12037, "", "https://libusb.info"};
    return &version;
}

int libusb_has_capability(uint32_t capability) {
    SIM_ENTER();
    switch (capability) {
        case LIBUSB_CAP_HAS_CAPABILITY:
        case LIBUSB_CAP_HAS_HOTPLUG:
            return 1;
        case LIBUSB_CAP_HAS_HID_ACCESS:
            return 0x10000;  // these two return their bit in the back end's own flags
        case LIBUSB_CAP_SUPPORTS_DETACH_KERNEL_DRIVER:
            return 0x20000;
        default:
            return 0;
    }
}
