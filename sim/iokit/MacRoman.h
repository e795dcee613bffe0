#pragma once

#include <string>

namespace sim {

// The text of Mac OS Roman bytes as UTF-8.
std::string utf8OfMacRoman(const std::string& bytes);

}  // namespace sim
