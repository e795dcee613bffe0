#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <thread>

#include "ground/DeviceRecords.h"

// Arrivals and removals. One libusb registration for each vendor id that some multi-vendor list watches, and
// one thread that handles the context's events. An event changes no list: it raises the `changePending` of
// the first list of the running session that watches the id, and the next update of that list enumerates
// again. Start, stop, registration and release are called from one thread; the callback runs on whichever
// thread handles events.

extern std::map<int32_t, int32_t>& g_hotPlugCallback;  ///< libusb's callback handle by vendor id
extern std::atomic<bool> g_eventLoopRunning;           ///< true while the event thread loops
extern std::thread& g_eventLoopThread;                 ///< the event thread; stopped and joined at unload

/// Starts the event thread and returns once it runs: 0. When it runs already: -1, and a loop that idles for
/// want of a context adopts this one. A null context starts an idle loop. Throws std::system_error when no
/// thread can be made.
int32_t initHotplugUsb(libusb_context* context);
/// Stops and joins the event thread, within about a second. Without one it does nothing.
void deinitHotplugUsb();
/// The event thread's body: handles the context's events, a second at a time, until the loop is stopped.
void hotplugEventLoop(libusb_context* context);

/// libusb's callback for both events. Returns 0, or libusb's code when the device's descriptor cannot be
/// read, which ends this registration.
int hotplug_callback(libusb_context* context, libusb_device* device, int event, void* userData);

/// Watches a vendor id: 0, or -1 when it is watched already (silently) or libusb refuses (logged). Throws
/// std::bad_alloc before libusb is asked.
int32_t registerForHotplug(libusb_context* context, int32_t vendorId);
/// Ends the watch of one vendor id at libusb; the id stays in the map and is never registered again before
/// the release: meant. 0, or -1 for an id that is not watched.
int32_t unregisterForHotplug(libusb_context* context, int32_t vendorId);
/// Ends the watch of one vendor id and forgets it, so that it can be registered again.
void forgetHotplug(libusb_context* context, int32_t vendorId);
/// Ends all watches in ascending order of vendor id.
void releaseHotplugCallbacks(libusb_context* context);
