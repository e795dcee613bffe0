#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <thread>

#include "ground/DeviceRecords.h"

// Arrivals and removals. There is one libusb registration per vendor id that a multi-vendor list watches, and
// one thread that handles the context's events. An event only sets `changePending` of the first list of the
// running session that watches the vendor id; the next update of that list enumerates again. Start, stop,
// registration and release are called on one thread; the callback runs on whichever thread handles events.

extern std::map<int32_t, int32_t>& g_hotPlugCallback;  ///< libusb's callback handle by vendor id
extern std::atomic<bool> g_eventLoopRunning;           ///< true while the event thread loops
extern std::thread& g_eventLoopThread;                 ///< the event thread; stopped and joined at unload

/// Starts the event thread; returns 0 once it runs. Returns -1 when it already runs; a loop that has no
/// context then adopts this one. With a null context the loop idles. Throws std::system_error when the thread
/// cannot be created.
int32_t initHotplugUsb(libusb_context* context);
/// Stops and joins the event thread, within about a second. Does nothing when it does not run.
void deinitHotplugUsb();
/// Body of the event thread: handles the context's events in periods of one second until the loop is stopped.
void hotplugEventLoop(libusb_context* context);

/// libusb's callback for both events. Returns 0, or libusb's code when the device descriptor cannot be read;
/// libusb then removes the registration.
int hotplug_callback(libusb_context* context, libusb_device* device, int event, void* userData);

/// Watches a vendor id. Returns 0, or -1 when the id is already watched (not logged) or libusb refuses
/// (logged). Throws std::bad_alloc before libusb is called.
int32_t registerForHotplug(libusb_context* context, int32_t vendorId);
/// Ends the watch of one vendor id. Returns 0, or -1 for an id that is not watched.
/// Deliberate: the id stays in the map, so registerForHotplug answers -1 for it until the release.
int32_t unregisterForHotplug(libusb_context* context, int32_t vendorId);
/// Ends the watch of one vendor id and removes it from the map, so that it can be registered again.
void forgetHotplug(libusb_context* context, int32_t vendorId);
/// Ends all watches, in ascending order of vendor id.
void releaseHotplugCallbacks(libusb_context* context);
