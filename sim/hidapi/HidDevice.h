// The public header of hidapi, declared for export, with what newer versions declare; the object behind its
// opaque pointer, and the first line of each function.
#pragma once

#pragma GCC visibility push(default)
#include <hidapi/hidapi.h>

extern "C" {
// Version 0.14.
int hid_get_report_descriptor(hid_device* device, unsigned char* data, size_t length);
// Version 0.15.
int hid_send_output_report(hid_device* device, const unsigned char* data, size_t length);
const wchar_t* hid_read_error(hid_device* device);
}
#pragma GCC visibility pop

#include <memory>
#include <string>
#include <vector>

#include "UsbHid.h"

/// First line of every function that returns a code: counts the call and makes it fail if a test asks for
/// that.
#define SIM_ENTER(failed)                         \
    static simbus::CallPoint callPoint(__func__); \
    if (callPoint.enter().has_value()) {          \
        return failed;                            \
    }

struct hid_device_ {
    std::unique_ptr<sim::HidOpening> opening;
    bool blocking = true;
    bool hasReport = false;  ///< the last read returned a report; it counts as taken at the next read
    hid_device_info* info = nullptr;  ///< made when the program first asks for it
    std::wstring error;               ///< of the last call; empty when it succeeded
    std::wstring readError;           ///< of the last read
};

namespace sim {

/// What a collection of an interface is for.
struct Usage {
    std::uint16_t page;
    std::uint16_t usage;
};

/// The usages under which this library lists an interface, at least one.
std::vector<Usage> usagesOf(const HidInterface& interface);

/// The descriptions of an interface as hid_enumerate() lists it, one for each usage; to be freed with
/// hid_free_enumeration().
hid_device_info* describe(const HidInterface& interface);

/// Copies a text to a buffer of `length` characters, cut and terminated. Returns 0, or -1 without a text or a
/// buffer.
int copyText(hid_device& device, const wchar_t* text, wchar_t* buffer, size_t length);

/// Notes the outcome of a call for hid_error(), and returns it; a negative one means that it failed.
int noted(hid_device& device, int result, const wchar_t* problem);

}  // namespace sim
