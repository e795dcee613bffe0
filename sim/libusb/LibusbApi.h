// The library's public header, declared for export, and how every function of it begins.
#pragma once

#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#include "Bus.h"

// First line of every function that answers a code (or a count): counts the call and fails it when a test
// wants so.
#define SIM_ENTER(name)                              \
    static simbus::CallPoint callPoint(name);        \
    if (const auto fault = callPoint.enter(); fault) \
    return *fault

// The same for the others.
#define SIM_ENTER_VOID(name)                  \
    static simbus::CallPoint callPoint(name); \
    callPoint.enter()
