#include "MacOSXUSBAccess/session/Session.h"

#include <libusb.h>

#include <cstdio>

#include "DebugUtil/DebugLog.h"
#include "HotplugUsb/HotplugUsb.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

constexpr int32_t kLibVersion = 347;

void logLibusbVersion() {
    const libusb_version* version = libusb_get_version();
    char text[32];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d-%s", version->major, version->minor, version->micro,
                  version->nano, version->rc);
    DN_WriteStrStr("LibUSB_Initialize libusb version:", text, 1);
}

/// Cuts the records of the context's lists off from it. Returns false when a transfer does not complete; its
/// list then keeps the context, because the transfer's thread waits in it.
bool cutOffLists(const libusb_context* context) {
    bool all = true;
    for (tagUSB_DEVICE_LIST* list = g_pDeviceList; list != nullptr; list = list->pNextList) {
        if (list->pContext != context) {
            continue;
        }
        if (cutOffRecords(*list)) {
            storeShared(list->pContext, nullptr);
        } else {
            all = false;
        }
    }
    return all;
}

void endContext(libusb_context* context) {
    g_liveContext = nullptr;
    releaseHotplugCallbacks(context);
    deinitHotplugUsb();
    // A context in which a transfer still runs is never ended: it leaks, but no thread uses freed memory.
    if (cutOffLists(context)) {
        dropCountedReferences();
        libusb_exit(context);
    }
    endRetiredRecords();
}

/// Starts the hotplug thread. If that fails, ends the context: there is no session without the thread.
void startHotplug(libusb_context** context) {
    try {
        initHotplugUsb(g_liveContext);
    } catch (...) {
        LibUSB_Release(context);
        throw;
    }
}

}  // namespace

int32_t LibUSB_Initialize(libusb_context** context) {
    if (context == nullptr) {
        return kNoContextPointer;
    }
    *context = nullptr;
    const int result = libusb_init(context);
    g_liveContext = result == LIBUSB_SUCCESS ? *context : nullptr;
    startHotplug(context);
    logLibusbVersion();
    return result;
}

int32_t LibUSB_Release(libusb_context** context) {
    debug_log("[LibUSB_Release] entry");
    int32_t result = kNoContext;
    if (*context != nullptr) {
        debug_log("[LibUSB_Release] valid context");
        if (*context == g_liveContext) {
            endContext(*context);
        }
        result = 0;
    }
    debug_log("[LibUSB_Release] exit: %d", result);
    return result;
}

int32_t LibUSB_GetLibVersion() {
    return kLibVersion;
}

void* LibUSB_get_libusb() {
    return nullptr;
}

void LibUSB_free_libusb() {}
