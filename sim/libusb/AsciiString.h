// A string of a device as libusb gives it: in the device's first language, "?" for what is not ASCII.
#pragma once

#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#include <array>
#include <cstdint>

namespace sim {

/// Writes at most `length` bytes of text, with a zero at the end. `read(index, language, bytes, size)` reads
/// a string descriptor and returns its bytes or a code of libusb. Returns the bytes before the zero, or a
/// code.
template <class Read>
int asciiString(Read read, std::uint8_t index, unsigned char* text, int length) {
    constexpr int kLanguages = 4;  // as much of the table as has the first language
    std::array<unsigned char, 255> descriptor{};
    if (index == 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    int count = read(0, 0, descriptor.data(), kLanguages);
    if (count < 0) {
        return count;
    }
    if (count != kLanguages || descriptor[0] < kLanguages || descriptor[1] != LIBUSB_DT_STRING) {
        return LIBUSB_ERROR_IO;
    }
    const auto language = static_cast<std::uint16_t>(descriptor[2] | descriptor[3] << 8);
    count = read(index, language, descriptor.data(), static_cast<int>(descriptor.size()));
    if (count < 0) {
        return count;
    }
    if (count < 2 || descriptor[0] > count || descriptor[1] != LIBUSB_DT_STRING) {
        return LIBUSB_ERROR_IO;
    }
    int written = 0;
    for (std::size_t at = 2; at + 1 < descriptor[0] && written < length - 1; at += 2) {
        const bool isAscii = descriptor[at + 1] == 0 && descriptor[at] < 0x80;
        text[written++] = isAscii ? descriptor[at] : '?';
    }
    text[written] = 0;
    return written;
}

}  // namespace sim
