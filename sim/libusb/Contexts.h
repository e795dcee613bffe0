// The start of contexts.
#pragma once

#include "Options.h"

namespace sim {

/// Implements libusb_init, with options. The state's lock is not held.
int startContext(libusb_context** given, const Options& options);

}  // namespace sim
