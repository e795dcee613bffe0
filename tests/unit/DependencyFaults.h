#pragma once

#include <map>
#include <string>
#include <vector>

/// The ways in which a call that the library makes can fail.
struct DependencyFault {
    std::vector<int> codes;  ///< results to inject; empty for a call that cannot fail
    unsigned mostCalls;      ///< number of calls per scenario that are made to fail; later ones are alike
};

/// Returns the faults of a call that the library makes to libusb, hidapi or the macOS stand-ins, by the bus's
/// name for it, or of an endpoint's completion ("transfer:0x81"). Null for an unknown name.
const DependencyFault* dependencyFault(const std::string& call);

/// True when the native method may return this: 0 or more, or one of its documented codes.
bool mayAnswer(const std::string& method, int result);
