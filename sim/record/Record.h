// Records what a program sends and receives over USB.
#pragma once

#include <string>

namespace simbus::record {

struct Options {
    std::string file = "capture.pcapng";
    bool anonymous = false;    ///< without serial numbers
    bool withoutData = false;  ///< of transfers that are no standard requests
};

/// Runs the program with the recorder in the place of libusb and hidapi, and says what is and what was
/// recorded. Returns its exit status, as simbus::command::runProgram does. Throws std::runtime_error when
/// nothing can be recorded; nothing is started then. What is to be left out is never in the file: that is
/// written at the end then.
int run(const Options& options, char* const* program);

}  // namespace simbus::record
