// The binary object store of a device, and its capabilities parsed into libusb's structures. Everything that
// is handed out is one block of malloc() and is freed by its own function.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "LibusbApi.h"
#include "LibusbNewer.h"
#include "Words.h"

namespace sim {

namespace {

using Capability = libusb_bos_dev_capability_descriptor;

/// The bytes of a capability, if it is of that type and has at least that size; else `error` is set.
const std::uint8_t* bytesOf(const Capability* capability, int type, int size, int& error) {
    error = LIBUSB_SUCCESS;
    if (capability->bDevCapabilityType != type) {
        error = LIBUSB_ERROR_INVALID_PARAM;
    } else if (capability->bLength < size) {
        error = LIBUSB_ERROR_IO;
    }
    return error == LIBUSB_SUCCESS ? reinterpret_cast<const std::uint8_t*>(capability) : nullptr;
}

template <class Structure>
Structure* allocate(std::size_t size = sizeof(Structure)) {
    return static_cast<Structure*>(std::calloc(1, std::max(size, sizeof(Structure))));
}

/// Copies the fields that are single bytes, in the order of the descriptor.
template <class Structure>
Structure* startOf(const std::uint8_t* bytes, std::size_t count, std::size_t size = sizeof(Structure)) {
    auto* made = allocate<Structure>(size);
    std::memcpy(made, bytes, count);
    return made;
}

void freeStore(libusb_bos_descriptor* store) {
    for (int i = 0; i < store->bNumDeviceCaps; ++i) {
        std::free(store->dev_capability[i]);
    }
    std::free(store);
}

int parseStore(const std::vector<std::uint8_t>& bytes, libusb_bos_descriptor** result) {
    if (bytes.size() < LIBUSB_DT_BOS_SIZE || bytes[1] != LIBUSB_DT_BOS || bytes[0] < LIBUSB_DT_BOS_SIZE ||
        bytes[0] > bytes.size()) {
        return LIBUSB_ERROR_IO;
    }
    const std::size_t promised = bytes[4];
    auto* store =
        allocate<libusb_bos_descriptor>(sizeof(libusb_bos_descriptor) + promised * sizeof(Capability*));
    store->bLength = bytes[0];
    store->bDescriptorType = bytes[1];
    store->wTotalLength = wordAt(&bytes[2]);
    std::size_t at = bytes[0];
    while (store->bNumDeviceCaps < promised && bytes.size() - at >= LIBUSB_DT_DEVICE_CAPABILITY_SIZE) {
        const std::uint8_t length = bytes[at];
        if (bytes[at + 1] != LIBUSB_DT_DEVICE_CAPABILITY) {
            break;
        }
        if (length < LIBUSB_DT_DEVICE_CAPABILITY_SIZE) {
            freeStore(store);
            return LIBUSB_ERROR_IO;
        }
        if (length > bytes.size() - at) {
            break;
        }
        store->dev_capability[store->bNumDeviceCaps++] = startOf<Capability>(&bytes[at], length, length);
        at += length;
    }
    *result = store;
    return LIBUSB_SUCCESS;
}

libusb_ssplus_sublink_attribute sublinkAt(const std::uint8_t* bytes) {
    const std::uint32_t bits = longAt(bytes);
    libusb_ssplus_sublink_attribute sublink{};
    sublink.ssid = bits & 0x0FU;
    sublink.exponent = static_cast<libusb_superspeedplus_sublink_attribute_exponent>(bits >> 4U & 0x03U);
    sublink.type = (bits & 0x40U) != 0 ? LIBUSB_SSPLUS_ATTR_TYPE_ASYM : LIBUSB_SSPLUS_ATTR_TYPE_SYM;
    sublink.direction = (bits & 0x80U) != 0 ? LIBUSB_SSPLUS_ATTR_DIR_TX : LIBUSB_SSPLUS_ATTR_DIR_RX;
    sublink.protocol = (bits & 0x4000U) != 0 ? LIBUSB_SSPLUS_ATTR_PROT_SSPLUS : LIBUSB_SSPLUS_ATTR_PROT_SS;
    sublink.mantissa = static_cast<std::uint16_t>(bits >> 16U);
    return sublink;
}

}  // namespace

}  // namespace sim

int libusb_get_bos_descriptor(libusb_device_handle* handle, libusb_bos_descriptor** result) {
    SIM_ENTER();
    std::vector<std::uint8_t> bytes(LIBUSB_DT_BOS_SIZE);
    int got = libusb_get_descriptor(handle, LIBUSB_DT_BOS, 0, bytes.data(), LIBUSB_DT_BOS_SIZE);
    if (got < 0) {
        return got;
    }
    if (got < LIBUSB_DT_BOS_SIZE) {
        return LIBUSB_ERROR_IO;
    }
    bytes.resize(sim::wordAt(&bytes[2]));
    got = libusb_get_descriptor(handle, LIBUSB_DT_BOS, 0, bytes.data(), static_cast<int>(bytes.size()));
    if (got < 0) {
        return got;
    }
    bytes.resize(static_cast<std::size_t>(got));
    return sim::parseStore(bytes, result);
}

void libusb_free_bos_descriptor(libusb_bos_descriptor* store) {
    SIM_ENTER_VOID();
    if (store != nullptr) {
        sim::freeStore(store);
    }
}

int libusb_get_usb_2_0_extension_descriptor(libusb_context* /*context*/, sim::Capability* capability,
                                            libusb_usb_2_0_extension_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    const std::uint8_t* bytes =
        sim::bytesOf(capability, LIBUSB_BT_USB_2_0_EXTENSION, LIBUSB_BT_USB_2_0_EXTENSION_SIZE, error);
    if (bytes != nullptr) {
        *result = sim::startOf<libusb_usb_2_0_extension_descriptor>(bytes, 3);
        (*result)->bmAttributes = sim::longAt(bytes + 3);
    }
    return error;
}

void libusb_free_usb_2_0_extension_descriptor(libusb_usb_2_0_extension_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}

int libusb_get_ss_usb_device_capability_descriptor(libusb_context* /*context*/, sim::Capability* capability,
                                                   libusb_ss_usb_device_capability_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    const std::uint8_t* bytes = sim::bytesOf(capability, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY,
                                             LIBUSB_BT_SS_USB_DEVICE_CAPABILITY_SIZE, error);
    if (bytes != nullptr) {
        *result = sim::startOf<libusb_ss_usb_device_capability_descriptor>(bytes, 4);
        (*result)->wSpeedSupported = sim::wordAt(bytes + 4);
        (*result)->bFunctionalitySupport = bytes[6];
        (*result)->bU1DevExitLat = bytes[7];
        (*result)->bU2DevExitLat = sim::wordAt(bytes + 8);
    }
    return error;
}

void libusb_free_ss_usb_device_capability_descriptor(libusb_ss_usb_device_capability_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}

int libusb_get_container_id_descriptor(libusb_context* /*context*/, sim::Capability* capability,
                                       libusb_container_id_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    constexpr int kSize = LIBUSB_BT_CONTAINER_ID_SIZE;
    const std::uint8_t* bytes = sim::bytesOf(capability, LIBUSB_BT_CONTAINER_ID, kSize, error);
    if (bytes != nullptr) {
        *result = sim::startOf<libusb_container_id_descriptor>(bytes, kSize);
    }
    return error;
}

void libusb_free_container_id_descriptor(libusb_container_id_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}

int libusb_get_platform_descriptor(libusb_context* /*context*/, sim::Capability* capability,
                                   libusb_platform_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    const std::uint8_t* bytes = sim::bytesOf(capability, LIBUSB_BT_PLATFORM_DESCRIPTOR,
                                             LIBUSB_BT_PLATFORM_DESCRIPTOR_MIN_SIZE, error);
    if (bytes != nullptr) {
        *result = sim::startOf<libusb_platform_descriptor>(bytes, bytes[0], bytes[0]);
    }
    return error;
}

void libusb_free_platform_descriptor(libusb_platform_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}

int libusb_get_ssplus_usb_device_capability_descriptor(
    libusb_context* /*context*/, sim::Capability* capability,
    libusb_ssplus_usb_device_capability_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    constexpr std::size_t kHeader = LIBUSB_BT_SSPLUS_USB_DEVICE_CAPABILITY_SIZE;
    const std::uint8_t* bytes =
        sim::bytesOf(capability, LIBUSB_BT_SUPERSPEED_PLUS_CAPABILITY, kHeader, error);
    if (bytes == nullptr) {
        return error;
    }
    const std::uint32_t attributes = sim::longAt(bytes + 4);
    const std::size_t sublinks = (attributes & 0x0FU) + 1;
    if (bytes[0] < kHeader + sublinks * sizeof(std::uint32_t)) {
        return LIBUSB_ERROR_IO;
    }
    auto* made = sim::allocate<libusb_ssplus_usb_device_capability_descriptor>(
        sizeof(libusb_ssplus_usb_device_capability_descriptor) +
        sublinks * sizeof(libusb_ssplus_sublink_attribute));
    const std::uint16_t lanes = sim::wordAt(bytes + 8);
    made->numSublinkSpeedAttributes = static_cast<std::uint8_t>(sublinks);
    made->numSublinkSpeedIDs = static_cast<std::uint8_t>((attributes >> 4U & 0x0FU) + 1);
    made->ssid = static_cast<std::uint8_t>(lanes & 0x0FU);
    made->minRxLaneCount = static_cast<std::uint8_t>(lanes >> 8U & 0x0FU);
    made->minTxLaneCount = static_cast<std::uint8_t>(lanes >> 12U & 0x0FU);
    libusb_ssplus_sublink_attribute* sublink = made->sublinkSpeedAttributes;
    for (std::size_t i = 0; i < sublinks; ++i) {
        sublink[i] = sim::sublinkAt(bytes + kHeader + i * sizeof(std::uint32_t));
    }
    *result = made;
    return LIBUSB_SUCCESS;
}

void libusb_free_ssplus_usb_device_capability_descriptor(
    libusb_ssplus_usb_device_capability_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}
