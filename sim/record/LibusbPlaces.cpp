#include "LibusbPlaces.h"

#include "Forward.h"
#include "UsbDescriptors.h"

RECORDED_FUNCTION(libusb_get_device);
RECORDED_FUNCTION(libusb_get_bus_number);
RECORDED_FUNCTION(libusb_get_device_address);
RECORDED_FUNCTION(libusb_get_device_descriptor);
RECORDED_FUNCTION(libusb_get_config_descriptor);
RECORDED_FUNCTION(libusb_free_config_descriptor);

namespace simbus::record {

Place placeOf(libusb_device_handle* handle) {
    libusb_device* device = REAL(libusb_get_device)(handle);
    return {REAL(libusb_get_bus_number)(device), REAL(libusb_get_device_address)(device)};
}

void recordDescriptors(libusb_device_handle* handle) {
    libusb_device* device = REAL(libusb_get_device)(handle);
    const Place place = placeOf(handle);
    libusb_device_descriptor descriptor{};
    if (REAL(libusb_get_device_descriptor)(device, &descriptor) != LIBUSB_SUCCESS) {
        return;
    }
    recordDescriptor(place, LIBUSB_DT_DEVICE, 0, 0, bytesOf(descriptor));
    for (std::uint8_t i = 0; i < descriptor.bNumConfigurations; ++i) {
        libusb_config_descriptor* configuration = nullptr;
        if (REAL(libusb_get_config_descriptor)(device, i, &configuration) == LIBUSB_SUCCESS) {
            recordDescriptor(place, LIBUSB_DT_CONFIG, i, 0, bytesOf(*configuration));
            REAL(libusb_free_config_descriptor)(configuration);
        }
    }
}

}  // namespace simbus::record
