// The texts of a device that a host has read when it was plugged in, for programs that have not opened it.
#include <algorithm>
#include <cstring>
#include <string>

#include "Checks.h"
#include "HostRequests.h"
#include "LibusbNewer.h"
#include "Utf8.h"

namespace sim {

namespace {

std::uint8_t indexOf(const libusb_device_descriptor& descriptor, std::size_t which) {
    switch (which) {
        case LIBUSB_DEVICE_STRING_MANUFACTURER:
            return descriptor.iManufacturer;
        case LIBUSB_DEVICE_STRING_PRODUCT:
            return descriptor.iProduct;
        default:
            return descriptor.iSerialNumber;
    }
}

constexpr bool isIn(char32_t unit, char32_t first) {
    constexpr char32_t kSurrogates = 0x400;
    return unit >= first && unit < first + kSurrogates;
}

/// Leaves out halves of pairs that have no other half.
std::string utf8Of(const std::wstring& units) {
    constexpr char32_t kHigh = 0xD800;
    constexpr char32_t kLow = 0xDC00;
    std::string utf8;
    for (std::size_t at = 0; at < units.size(); ++at) {
        const auto unit = static_cast<char32_t>(units[at]);
        const auto next = at + 1 < units.size() ? static_cast<char32_t>(units[at + 1]) : 0;
        if (isIn(unit, kHigh) && isIn(next, kLow)) {
            simbus::appendUtf8(utf8, 0x10000 + ((unit - kHigh) << 10U) + (next - kLow));
            ++at;
        } else if (!isIn(unit, kHigh) && !isIn(unit, kLow)) {
            simbus::appendUtf8(utf8, unit);
        }
    }
    return utf8;
}

/// Copies as many whole characters as there is room for, and ends them with a NUL.
void copyCut(const std::string& text, char* data, std::size_t length) {
    std::size_t count = std::min(text.size(), length - 1);
    const auto continues = [&](std::size_t at) {
        return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
    };
    while (count > 0 && continues(count)) {
        --count;
    }
    std::memcpy(data, text.data(), count);
    data[count] = '\0';
}

/// The text, from the device the first time; empty when it has none. Locks the state meanwhile.
std::optional<std::string> stringOf(libusb_device& device, std::size_t which) {
    StateLock lock(state().mutex);
    if (device.strings.at(which)) {
        return device.strings.at(which);
    }
    const simbus::DeviceInfoPtr info = device.info;
    const std::uint8_t index = indexOf(device.descriptor, which);
    lock.unlock();
    const auto units = simbus::readString(*info, index);
    if (!units || units->empty()) {
        return std::nullopt;
    }
    lock.lock();
    return device.strings.at(which) = utf8Of(*units);
}

}  // namespace

}  // namespace sim

/// Returns the size of the whole text with its NUL, also when the buffer is too small for it, or null.
int libusb_get_device_string(libusb_device* given, libusb_device_string_type which, char* data, int length) {
    SIM_ENTER();
    libusb_device* device = nullptr;
    {
        const sim::StateLock lock(sim::state().mutex);
        device = sim::checkDevice(__func__, given);
    }
    if (device == nullptr || which < LIBUSB_DEVICE_STRING_MANUFACTURER ||
        which >= LIBUSB_DEVICE_STRING_COUNT || length <= 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (data != nullptr) {
        *data = '\0';
    }
    const auto text = sim::stringOf(*device, static_cast<std::size_t>(which));
    if (!text) {
        return LIBUSB_ERROR_IO;
    }
    if (data != nullptr) {
        sim::copyCut(*text, data, static_cast<std::size_t>(length));
    }
    return static_cast<int>(text->size()) + 1;
}
