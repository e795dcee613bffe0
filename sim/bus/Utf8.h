// Texts as UTF-8.
#pragma once

#include <string>

namespace simbus {

/// Appends a character; its number is below 0x110000.
inline void appendUtf8(std::string& utf8, char32_t character) {
    if (character < 0x80) {
        utf8 += static_cast<char>(character);
        return;
    }
    constexpr unsigned kLeads[] = {0, 0xC0, 0xE0, 0xF0};
    const unsigned more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    utf8 += static_cast<char>(kLeads[more] | character >> 6U * more);
    for (unsigned left = more; left-- > 0;) {
        utf8 += static_cast<char>(0x80U | (character >> 6U * left & 0x3FU));
    }
}

}  // namespace simbus
