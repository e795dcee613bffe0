// Names and messages of the library's codes.
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "LibusbApi.h"

const char* libusb_error_name(int code) {
    SIM_ENTER_VOID();
    switch (code) {
        case LIBUSB_SUCCESS:
            return "LIBUSB_SUCCESS / LIBUSB_TRANSFER_COMPLETED";
        case LIBUSB_ERROR_IO:
            return "LIBUSB_ERROR_IO";
        case LIBUSB_ERROR_INVALID_PARAM:
            return "LIBUSB_ERROR_INVALID_PARAM";
        case LIBUSB_ERROR_ACCESS:
            return "LIBUSB_ERROR_ACCESS";
        case LIBUSB_ERROR_NO_DEVICE:
            return "LIBUSB_ERROR_NO_DEVICE";
        case LIBUSB_ERROR_NOT_FOUND:
            return "LIBUSB_ERROR_NOT_FOUND";
        case LIBUSB_ERROR_BUSY:
            return "LIBUSB_ERROR_BUSY";
        case LIBUSB_ERROR_TIMEOUT:
            return "LIBUSB_ERROR_TIMEOUT";
        case LIBUSB_ERROR_OVERFLOW:
            return "LIBUSB_ERROR_OVERFLOW";
        case LIBUSB_ERROR_PIPE:
            return "LIBUSB_ERROR_PIPE";
        case LIBUSB_ERROR_INTERRUPTED:
            return "LIBUSB_ERROR_INTERRUPTED";
        case LIBUSB_ERROR_NO_MEM:
            return "LIBUSB_ERROR_NO_MEM";
        case LIBUSB_ERROR_NOT_SUPPORTED:
            return "LIBUSB_ERROR_NOT_SUPPORTED";
        case LIBUSB_ERROR_OTHER:
            return "LIBUSB_ERROR_OTHER";
        case LIBUSB_TRANSFER_ERROR:
            return "LIBUSB_TRANSFER_ERROR";
        case LIBUSB_TRANSFER_TIMED_OUT:
            return "LIBUSB_TRANSFER_TIMED_OUT";
        case LIBUSB_TRANSFER_CANCELLED:
            return "LIBUSB_TRANSFER_CANCELLED";
        case LIBUSB_TRANSFER_STALL:
            return "LIBUSB_TRANSFER_STALL";
        case LIBUSB_TRANSFER_NO_DEVICE:
            return "LIBUSB_TRANSFER_NO_DEVICE";
        case LIBUSB_TRANSFER_OVERFLOW:
            return "LIBUSB_TRANSFER_OVERFLOW";
        default:
            return "**UNKNOWN**";
    }
}

/// The texts exist in English only; other languages of the real library are accepted.
int libusb_setlocale(const char* locale) {
    SIM_ENTER();
    if (locale == nullptr || std::strlen(locale) < 2 ||
        (std::strlen(locale) > 2 && std::strchr("-_.", locale[2]) == nullptr)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    static constexpr std::array<const char*, 6> kLanguages = {"en", "nl", "fr", "ru", "de", "hu"};
    const bool known = std::any_of(kLanguages.begin(), kLanguages.end(), [&](const char* language) {
        return strncasecmp(locale, language, 2) == 0;
    });
    return known ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

const char* libusb_strerror(int code) {
    SIM_ENTER_VOID();
    static constexpr std::array<const char*, 13> kTexts = {
        "Success",
        "Input/Output Error",
        "Invalid parameter",
        "Access denied (insufficient permissions)",
        "No such device (it may have been disconnected)",
        "Entity not found",
        "Resource busy",
        "Operation timed out",
        "Overflow",
        "Pipe error",
        "System call interrupted (perhaps due to signal)",
        "Insufficient memory",
        "Operation not supported or unimplemented on this platform",
    };
    const int at = -code;
    return at >= 0 && at < static_cast<int>(kTexts.size()) ? kTexts[static_cast<std::size_t>(at)]
                                                           : "Other error";
}
