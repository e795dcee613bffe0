// Makes devices of a capture.
#pragma once

#include <ostream>
#include <string>

namespace simbus::replay {

/// Writes the scenario of the capture. Returns the exit status: 0, or 1 when there is no device in it. Throws
/// std::runtime_error when it cannot be read.
int writeScenario(const std::string& capture, std::ostream& to);

/// Runs the program with the devices of the capture, and says what it has asked for that is not in it.
/// Returns its exit status, as simbus::command::runProgram does. Throws std::runtime_error when there are no
/// devices; nothing is started then.
int run(const std::string& capture, char* const* program);

}  // namespace simbus::replay
