// Options of contexts, and the messages that the library logs.
#pragma once

#include <string>

#include "LibusbApi.h"

namespace sim {

struct Options {
    int logLevel = LIBUSB_LOG_LEVEL_NONE;
    libusb_log_cb logCallback = nullptr;  ///< among those of the contexts to come: of the whole process
    bool withoutDevices = false;          ///< the context lists no devices and reports no plugs
};

/// The options of a new context: those that the program has set for all. LIBUSB_DEBUG overrides the level.
/// The state's lock is held.
Options startingOptions();

/// Whether a message of this level is logged. The state's lock is held.
bool isLogged(const libusb_context& context, libusb_log_level level);

/// Logs a message of a context if its level is high enough: to the callback of the process, or standard error
/// when there is none, and to the callback of the context. The state's lock is not held.
void log(libusb_context& context, libusb_log_level level, const char* function, const std::string& text);

}  // namespace sim
