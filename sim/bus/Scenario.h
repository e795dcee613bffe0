// The text of a scenario, read and checked as a whole.
#pragma once

#include <string>

#include "Json.h"

namespace simbus {

/// The scenario, whose devices are valid. Throws std::runtime_error with the line and the field that is
/// wrong.
Json readScenario(const std::string& text);
/// Throws Wrong, with the field.
void checkScenario(const Json& scenario);

/// The line of the text, from 1, to which the way leads, or its last step that is there. The text is valid
/// JSON.
std::size_t lineAt(const std::string& text, const std::vector<Json>& way);

}  // namespace simbus
