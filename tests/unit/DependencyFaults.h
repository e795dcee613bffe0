#pragma once

#include <map>
#include <string>
#include <vector>

/// How a call that the library makes may fail.
struct DependencyFault {
    std::vector<int> codes;  ///< what it may answer; empty for a call that cannot fail
    unsigned mostCalls;      ///< so many calls of one scenario are made to fail, the others are like these
};

/// Every call that the library makes to libusb, to hidapi and to the macOS stand-ins, by the bus's name for
/// it, and each endpoint's completion ("transfer:0x81"). Null for a name that is not known.
const DependencyFault* dependencyFault(const std::string& call);

/// True when the native method may answer this: 0 and more, or a code that it has for its caller.
bool mayAnswer(const std::string& method, int result);
