// What only the libusb library of hidapi does.
#include <cstdint>

#include "HidDevice.h"
#include "HostRequests.h"

#pragma GCC visibility push(default)
#include <hidapi/hidapi_libusb.h>
#pragma GCC visibility pop

/// It does not read the report descriptor, as that would take the interface from the system's driver.
std::vector<sim::Usage> sim::usagesOf(const HidInterface& /*interface*/) {
    return {{0, 0}};
}

int hid_get_indexed_string(hid_device* device, int index, wchar_t* string, size_t maxlen) {
    SIM_ENTER(-1)
    const auto text =
        simbus::readString(*device->opening->interface().device, static_cast<std::uint8_t>(index));
    return sim::copyText(*device, text ? text->c_str() : nullptr, string, maxlen);
}

/// No device of this system is on the simulated bus.
hid_device* hid_libusb_wrap_sys_device(intptr_t /*device*/, int /*interfaceNumber*/) {
    SIM_ENTER(nullptr)
    return nullptr;
}
