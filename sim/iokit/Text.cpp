#include "Text.h"

namespace sim {

namespace {

/// The characters of the bytes 0x80 to 0xFF.
constexpr char16_t kUpperHalf[] =
    u"ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü"
    u"†°¢£§•¶ß®©™´¨≠ÆØ∞±≤≥¥µ∂∑∏π∫ªºΩæø"
    u"¿¡¬√ƒ≈∆«»… ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ"
    u"‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";

void append(std::string& utf8, unsigned character) {
    const auto put = [&](unsigned byte) { utf8 += static_cast<char>(byte); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

}  // namespace

std::string utf8OfMacRoman(const std::string& bytes) {
    std::string utf8;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        append(utf8, value < 0x80 ? value : kUpperHalf[value - 0x80]);
    }
    return utf8;
}

std::string utf8Of(const std::wstring& text) {
    std::string utf8;
    for (const wchar_t unit : text) {
        append(utf8, static_cast<char16_t>(unit));
    }
    return utf8;
}

}  // namespace sim
