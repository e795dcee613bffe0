// The scenario of a recording.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "Recording.h"

namespace simbus::replay {

/// Who answers the control requests that were seen.
enum class AnsweredBy {
    program,  ///< that of the device
    rules  ///< of the scenario: in turn what the request was answered, and then from the beginning. Requests
           ///< that were not always ended in the same way are left to the program.
};

/// Devices with the descriptors of the recorded ones. Everything at their endpoints is answered by a program.
nlohmann::json scenarioOf(const std::vector<RecordedDevice>& devices, AnsweredBy by);

}  // namespace simbus::replay
