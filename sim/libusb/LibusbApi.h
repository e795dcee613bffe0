// The library's public header, declared for export, and the first line of each of its functions.
#pragma once

#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#include "Bus.h"

/// First line of every function that returns a code (or a count): counts the call and makes it fail if a test
/// asks for that.
#define SIM_ENTER()                                  \
    static simbus::CallPoint callPoint(__func__);    \
    if (const auto fault = callPoint.enter(); fault) \
    return *fault

/// The same for the other functions, which only count the call.
#define SIM_ENTER_VOID()                          \
    static simbus::CallPoint callPoint(__func__); \
    callPoint.enter()
