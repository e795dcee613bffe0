// Texts on their way to and from UTF-8.
#pragma once

#include <string>

namespace sim {

// The text of Mac OS Roman bytes as UTF-8.
std::string utf8OfMacRoman(const std::string& bytes);
// A string descriptor's text: its units as they are.
std::string utf8Of(const std::wstring& text);

}  // namespace sim
