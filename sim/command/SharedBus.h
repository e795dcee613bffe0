// The bus of this process, for the programs that it starts.
#pragma once

#include <functional>
#include <string>

#include "Bus.h"
#include "Program.h"

namespace simbus::command {

/// Fills the bus with `load`, and opens its control socket: at SIMBUS_SOCKET, or else in `folder`. Programs
/// that are started from now on are on this bus. Returns the path of the socket. Throws std::runtime_error.
std::string shareBus(const PrivateFolder& folder, const std::function<void(Bus&)>& load);

}  // namespace simbus::command
