// Event handling inside the library: one thread at a time handles a context's events; the others wait for it
// to leave. The state's lock is not held.
#pragma once

#include <chrono>

#include "Objects.h"

namespace sim {

void lockEvents(libusb_context& context);
bool tryLockEvents(libusb_context& context);
void unlockEvents(libusb_context& context);

/// Implements libusb_handle_events_timeout_completed; `completed` may be null.
int handleEvents(libusb_context& context, std::chrono::nanoseconds timeout, const int* completed);

/// True when a pass of event handling would find something, other than a time-out. The state's lock is held.
bool hasWork(const libusb_context& context);

/// One pass of the thread that holds the events lock.
void handleOnce(libusb_context& context, std::chrono::nanoseconds timeout);

/// Calls the hotplug callbacks for the events since the last call.
void processHotplug(libusb_context& context);

}  // namespace sim
