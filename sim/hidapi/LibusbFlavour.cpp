// What only the libusb library of hidapi does.
#include <cstdint>

#include "HidDevice.h"

#pragma GCC visibility push(default)
#include <hidapi/hidapi_libusb.h>
#pragma GCC visibility pop

int hid_get_indexed_string(hid_device* device, int index, wchar_t* string, size_t maxlen) {
    SIM_ENTER(-1)
    const auto text = sim::readString(*device->opening->interface().device, static_cast<std::uint8_t>(index));
    return sim::copyText(*device, text ? text->c_str() : nullptr, string, maxlen);
}

/// No device of this system is on the simulated bus.
hid_device* hid_libusb_wrap_sys_device(intptr_t /*device*/, int /*interfaceNumber*/) {
    SIM_ENTER(nullptr)
    return nullptr;
}
