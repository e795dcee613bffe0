// The scenario of a recording.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "Recording.h"

namespace simbus::replay {

/// Devices with the descriptors of the recorded ones. Their programs answer for them: requests that were
/// seen, and everything at their endpoints.
nlohmann::json scenarioOf(const std::vector<RecordedDevice>& devices);

}  // namespace simbus::replay
