// What newer versions of the library's public header declare, for builds with an older one.
#pragma once

#include <libusb.h>

#pragma GCC visibility push(default)
extern "C" {

#if LIBUSB_API_VERSION < 0x0100010A
// Version 1.0.27.
enum {
    LIBUSB_OPTION_LOG_CB = 3,
    LIBUSB_DT_INTERFACE_ASSOCIATION = 0x0B,
    LIBUSB_DT_INTERFACE_ASSOCIATION_SIZE = 8,
    LIBUSB_BT_PLATFORM_DESCRIPTOR = 0x05,
    LIBUSB_BT_PLATFORM_DESCRIPTOR_MIN_SIZE = 20,
    LIBUSB_BT_SUPERSPEED_PLUS_CAPABILITY = 0x0A,
    LIBUSB_BT_SSPLUS_USB_DEVICE_CAPABILITY_SIZE = 12
};

struct libusb_interface_association_descriptor {
    uint8_t bLength;
    uint8_t bDescriptorType;
    uint8_t bFirstInterface;
    uint8_t bInterfaceCount;
    uint8_t bFunctionClass;
    uint8_t bFunctionSubClass;
    uint8_t bFunctionProtocol;
    uint8_t iFunction;
};

struct libusb_interface_association_descriptor_array {
    const libusb_interface_association_descriptor* iad;
    int length;
};

struct libusb_platform_descriptor {
    uint8_t bLength;
    uint8_t bDescriptorType;
    uint8_t bDevCapabilityType;
    uint8_t bReserved;
    uint8_t PlatformCapabilityUUID[16];
    uint8_t CapabilityData[1];  ///< bLength - 20 bytes
};

enum libusb_superspeedplus_sublink_attribute_sublink_type {
    LIBUSB_SSPLUS_ATTR_TYPE_SYM = 0,
    LIBUSB_SSPLUS_ATTR_TYPE_ASYM = 1
};
enum libusb_superspeedplus_sublink_attribute_sublink_direction {
    LIBUSB_SSPLUS_ATTR_DIR_RX = 0,
    LIBUSB_SSPLUS_ATTR_DIR_TX = 1
};
enum libusb_superspeedplus_sublink_attribute_exponent {
    LIBUSB_SSPLUS_ATTR_EXP_BPS = 0,
    LIBUSB_SSPLUS_ATTR_EXP_KBS = 1,
    LIBUSB_SSPLUS_ATTR_EXP_MBS = 2,
    LIBUSB_SSPLUS_ATTR_EXP_GBS = 3
};
enum libusb_superspeedplus_sublink_attribute_link_protocol {
    LIBUSB_SSPLUS_ATTR_PROT_SS = 0,
    LIBUSB_SSPLUS_ATTR_PROT_SSPLUS = 1
};

struct libusb_ssplus_sublink_attribute {
    uint8_t ssid;
    libusb_superspeedplus_sublink_attribute_exponent exponent;
    libusb_superspeedplus_sublink_attribute_sublink_type type;
    libusb_superspeedplus_sublink_attribute_sublink_direction direction;
    libusb_superspeedplus_sublink_attribute_link_protocol protocol;
    uint16_t mantissa;
};

struct libusb_ssplus_usb_device_capability_descriptor {
    uint8_t numSublinkSpeedAttributes;
    uint8_t numSublinkSpeedIDs;
    uint8_t ssid;
    uint8_t minRxLaneCount;
    uint8_t minTxLaneCount;
    libusb_ssplus_sublink_attribute sublinkSpeedAttributes[1];  ///< numSublinkSpeedAttributes of them
};

struct libusb_init_option {
    libusb_option option;
    union {
        int ival;
        libusb_log_cb log_cbval;
    } value;
};

int libusb_init_context(libusb_context** context, const libusb_init_option options[], int count);
int libusb_get_ssplus_usb_device_capability_descriptor(
    libusb_context* context, libusb_bos_dev_capability_descriptor* capability,
    libusb_ssplus_usb_device_capability_descriptor** result);
void libusb_free_ssplus_usb_device_capability_descriptor(
    libusb_ssplus_usb_device_capability_descriptor* descriptor);
int libusb_get_platform_descriptor(libusb_context* context, libusb_bos_dev_capability_descriptor* capability,
                                   libusb_platform_descriptor** result);
void libusb_free_platform_descriptor(libusb_platform_descriptor* descriptor);
int libusb_get_max_alt_packet_size(libusb_device* device, int interfaceNumber, int alternate,
                                   unsigned char endpoint);
int libusb_get_interface_association_descriptors(libusb_device* device, uint8_t index,
                                                 libusb_interface_association_descriptor_array** array);
int libusb_get_active_interface_association_descriptors(
    libusb_device* device, libusb_interface_association_descriptor_array** array);
void libusb_free_interface_association_descriptors(libusb_interface_association_descriptor_array* array);
#endif

#if LIBUSB_API_VERSION < 0x0100010C
// Version 1.0.30.
enum libusb_device_string_type {
    LIBUSB_DEVICE_STRING_MANUFACTURER,
    LIBUSB_DEVICE_STRING_PRODUCT,
    LIBUSB_DEVICE_STRING_SERIAL_NUMBER,
    LIBUSB_DEVICE_STRING_COUNT
};

int libusb_get_device_string(libusb_device* device, libusb_device_string_type which, char* data, int length);
unsigned long libusb_get_session_data(libusb_device* device);
int libusb_endpoint_supports_raw_io(libusb_device_handle* handle, uint8_t endpoint);
int libusb_endpoint_set_raw_io(libusb_device_handle* handle, uint8_t endpoint, int enable);
int libusb_get_max_raw_io_transfer_size(libusb_device_handle* handle, uint8_t endpoint);
#endif

}  // extern "C"
#pragma GCC visibility pop
