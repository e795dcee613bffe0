// Runs a program on a simulated bus.
#pragma once

#include <string>

namespace simbus::command {

/// Runs the program until it ends, with the drop-in libraries, the module for devices in Python and the
/// devices of the scenario file. `program` is the argument vector, with a null at its end; its first word is
/// looked for as a shell does. Everything that the program starts is on the same bus, which lives in this
/// process: the devices keep their state from one program to the next.
///
/// Returns the program's exit status, 128 plus the number of the signal that ended it, 127 when there is no
/// such program, 126 when it cannot be started. Throws std::runtime_error when there can be no bus; nothing
/// is started then.
int run(const std::string& scenario, char* const* program);

}  // namespace simbus::command
