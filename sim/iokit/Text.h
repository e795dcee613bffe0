// Conversion of texts to UTF-8.
#pragma once

#include <string>

namespace sim {

/// Converts Mac OS Roman bytes to UTF-8.
std::string utf8OfMacRoman(const std::string& bytes);
/// Converts a string descriptor's text to UTF-8, unit by unit.
std::string utf8Of(const std::wstring& text);

}  // namespace sim
