#include "Text.h"

#include "Utf8.h"

namespace sim {

namespace {

/// The characters of the bytes 0x80 to 0xFF.
constexpr char16_t kUpperHalf[] =
    u"ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü"
    u"†°¢£§•¶ß®©™´¨≠ÆØ∞±≤≥¥µ∂∑∏π∫ªºΩæø"
    u"¿¡¬√ƒ≈∆«»… ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ"
    u"‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";

}  // namespace

std::string utf8OfMacRoman(const std::string& bytes) {
    std::string utf8;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        simbus::appendUtf8(utf8, value < 0x80 ? value : kUpperHalf[value - 0x80]);
    }
    return utf8;
}

std::string utf8Of(const std::wstring& text) {
    std::string utf8;
    for (const wchar_t unit : text) {
        simbus::appendUtf8(utf8, static_cast<char16_t>(unit));
    }
    return utf8;
}

}  // namespace sim
