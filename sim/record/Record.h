// Records what a program sends and receives over USB.
#pragma once

#include <string>

namespace simbus::record {

/// Runs the program with the recorder in the place of libusb and hidapi, and says what is and what was
/// recorded. Returns its exit status, as simbus::command::runProgram does. Throws std::runtime_error when
/// nothing can be recorded; nothing is started then.
int run(const std::string& file, char* const* program);

}  // namespace simbus::record
