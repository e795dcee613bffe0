// Strict checks of the caller: each wrong use of the interface is recorded as a violation of the bus and
// returns an error instead of crashing. The caller of every function holds the state's lock.
//
// Deliberate: these are not violations:
//  - config descriptors that are never freed: only counted, as the tally "config descriptors not freed";
//  - device lists without a device that are never freed: only counted, at libusb_exit, as the tally "empty
//    device lists not freed";
//  - transfers that are never freed: only counted, as the tally "transfers not freed";
//  - libusb_hotplug_deregister_callback of a callback that has removed itself by returning non-zero.
#pragma once

#include <string>

#include "Objects.h"

namespace sim {

void violation(const char* function, const std::string& text);
std::string nameOf(const libusb_device& device);  ///< for messages: its serial number, or its id on the bus

/// Returns the object behind a pointer of the caller, or null after recording a violation.
libusb_context* checkContext(const char* function,
                             libusb_context* given);  ///< null means the default context
libusb_device* checkDevice(const char* function, libusb_device* given);
libusb_device_handle* checkHandle(const char* function, libusb_device_handle* given);
TransferRecord* checkTransfer(const char* function, libusb_transfer* given);

/// Returns false, after recording a violation, when the thread runs a callback of the library, which must
/// neither wait nor handle events.
bool checkMayWait(const char* function);

/// Records what a program has not freed at libusb_exit.
void checkLeftBehind(const char* function, const libusb_context& context);

}  // namespace sim
