#include "FakeConfiguration.h"

#include <libusb.h>

namespace {

libusb_config_descriptor g_claimed{};
bool g_claims = false;

}  // namespace

FakeConfiguration::FakeConfiguration(uint16_t totalLength) {
    g_claimed.wTotalLength = totalLength;
    g_claims = true;
}

FakeConfiguration::~FakeConfiguration() {
    g_claims = false;
}

extern "C" {

int __real_libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config);

int __wrap_libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config) {
    if (!g_claims) {
        return __real_libusb_get_active_config_descriptor(device, config);
    }
    *config = &g_claimed;
    return LIBUSB_SUCCESS;
}
}
