// The strict look at the caller: every wrong use of the interface becomes a text among the bus's violations,
// and an error for the caller instead of a crash. All of it expects the state's lock to be held.
//
// What is let pass on purpose, by name:
//   - config descriptors that are never freed: only counted, as the tally "config descriptors not freed";
//   - device lists without a device that are never freed: only counted, as the tally "empty device lists not
//     freed", at libusb_exit;
//   - transfers that are never freed: only counted, as the tally "transfers not freed";
//   - libusb_hotplug_deregister_callback of a callback that is gone: one that answered non-zero has left by
//   itself.
#pragma once

#include <string>

#include "Objects.h"

namespace sim {

void violation(const char* function, const std::string& text);
std::string nameOf(const libusb_device& device);  // for texts: its serial, or its id on the bus

// The object behind a pointer of the caller, or null after a violation.
libusb_context* checkContext(const char* function, libusb_context* given);  // null means the default one
libusb_device* checkDevice(const char* function, libusb_device* given);
libusb_device_handle* checkHandle(const char* function, libusb_device_handle* given);
TransferRecord* checkTransfer(const char* function, libusb_transfer* given);

// False after a violation when the thread runs a callback of the library, where it must neither wait nor
// handle events.
bool checkMayWait(const char* function);

// What a program leaves behind at libusb_exit.
void checkLeftBehind(const libusb_context& context);

}  // namespace sim
