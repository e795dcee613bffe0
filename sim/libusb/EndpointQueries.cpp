// What programs ask about endpoints and functions of a configuration: packet sizes, companions, associations.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Checks.h"
#include "ConfigDescriptors.h"
#include "LibusbNewer.h"
#include "Words.h"

namespace sim {

namespace {

using Associations = libusb_interface_association_descriptor_array;

/// Parses the active configuration. Returns LIBUSB_SUCCESS, or the code of
/// libusb_get_active_config_descriptor(). The caller holds the state's lock.
int parseActive(const libusb_device& device, ConfigRecord& record) {
    const auto active = simbus::Bus::instance().configuration(device.info->connection);
    if (!active) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const simbus::Bytes* bytes = configurationOf(*device.info, *active);
    return *active == 0 || bytes == nullptr ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND)
                                            : parseConfiguration(*bytes, record);
}

struct Place {
    int interfaceNumber;  ///< -1: any interface and setting
    int alternate;
};

bool isAt(const libusb_interface_descriptor& setting, const Place& place) {
    return place.interfaceNumber < 0 || (setting.bInterfaceNumber == place.interfaceNumber &&
                                         setting.bAlternateSetting == place.alternate);
}

const libusb_endpoint_descriptor* findEndpoint(const ConfigRecord& record, const Place& place,
                                               unsigned char address) {
    for (const InterfaceStore& interface : record.interfaces) {
        for (const libusb_interface_descriptor& setting : interface.shown) {
            for (int i = 0; isAt(setting, place) && i < setting.bNumEndpoints; ++i) {
                if (setting.endpoint[i].bEndpointAddress == address) {
                    return &setting.endpoint[i];
                }
            }
        }
    }
    return nullptr;
}

/// Looks for the companion among the descriptors that follow an endpoint's. Returns its first byte, or null
/// with the code in `error`.
const std::uint8_t* findCompanion(const libusb_endpoint_descriptor& endpoint, int& error) {
    const std::uint8_t* at = endpoint.extra;
    int left = endpoint.extra_length;
    for (; left >= 2; left -= at[0], at += at[0]) {
        error = LIBUSB_ERROR_IO;
        if (at[0] < 2 || at[0] > left) {
            return nullptr;
        }
        if (at[1] == LIBUSB_DT_SS_ENDPOINT_COMPANION) {
            return at[0] < LIBUSB_DT_SS_ENDPOINT_COMPANION_SIZE ? nullptr : at;
        }
    }
    error = LIBUSB_ERROR_NOT_FOUND;
    return nullptr;
}

/// The most bytes that an isochronous or interrupt endpoint moves in one interval.
int bytesPerInterval(const libusb_device& device, const libusb_endpoint_descriptor& endpoint) {
    int error = LIBUSB_SUCCESS;
    const std::uint8_t* companion =
        device.info->speed == simbus::Speed::super ? findCompanion(endpoint, error) : nullptr;
    if (companion != nullptr) {
        return wordAt(companion + 4);
    }
    const unsigned type = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    int size = endpoint.wMaxPacketSize & 0x07FF;
    if (type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS || type == LIBUSB_TRANSFER_TYPE_INTERRUPT) {
        size *= 1 + (endpoint.wMaxPacketSize >> 11 & 3);
    }
    return size;
}

enum class Asked { packet, interval };

int sizeOf(const char* function, libusb_device* given, const Place& place, unsigned char address,
           Asked asked) {
    const StateLock lock(state().mutex);
    const libusb_device* device = checkDevice(function, given);
    ConfigRecord record;
    if (device == nullptr || parseActive(*device, record) != LIBUSB_SUCCESS) {
        return LIBUSB_ERROR_OTHER;
    }
    const libusb_endpoint_descriptor* endpoint = findEndpoint(record, place, address);
    if (endpoint == nullptr) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return asked == Asked::packet ? endpoint->wMaxPacketSize : bytesPerInterval(*device, *endpoint);
}

int readAssociations(const simbus::Bytes* bytes, Associations** result) {
    if (bytes == nullptr) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    std::vector<libusb_interface_association_descriptor> found;
    std::size_t at = 0;
    while (bytes->size() - at >= 2) {
        const std::uint8_t length = (*bytes)[at];
        if (length < 2) {
            return LIBUSB_ERROR_IO;
        }
        if (length > bytes->size() - at) {
            break;
        }
        if ((*bytes)[at + 1] == LIBUSB_DT_INTERFACE_ASSOCIATION &&
            length >= LIBUSB_DT_INTERFACE_ASSOCIATION_SIZE) {
            std::memcpy(&found.emplace_back(), &(*bytes)[at], LIBUSB_DT_INTERFACE_ASSOCIATION_SIZE);
        }
        at += length;
    }
    auto* array = static_cast<Associations*>(std::calloc(1, sizeof(Associations)));
    if (!found.empty()) {
        const std::size_t size = found.size() * sizeof(found.front());
        void* copy = std::malloc(size);
        std::memcpy(copy, found.data(), size);
        array->iad = static_cast<const libusb_interface_association_descriptor*>(copy);
        array->length = static_cast<int>(found.size());
    }
    *result = array;
    return LIBUSB_SUCCESS;
}

}  // namespace

}  // namespace sim

using sim::StateLock;

int libusb_get_max_packet_size(libusb_device* device, unsigned char endpoint) {
    SIM_ENTER();
    return sim::sizeOf(__func__, device, {-1, 0}, endpoint, sim::Asked::packet);
}

int libusb_get_max_iso_packet_size(libusb_device* device, unsigned char endpoint) {
    SIM_ENTER();
    return sim::sizeOf(__func__, device, {-1, 0}, endpoint, sim::Asked::interval);
}

int libusb_get_max_alt_packet_size(libusb_device* device, int interfaceNumber, int alternate,
                                   unsigned char endpoint) {
    SIM_ENTER();
    if (interfaceNumber < 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return sim::sizeOf(__func__, device, {interfaceNumber, alternate}, endpoint, sim::Asked::interval);
}

int libusb_get_ss_endpoint_companion_descriptor(libusb_context* /*context*/,
                                                const libusb_endpoint_descriptor* endpoint,
                                                libusb_ss_endpoint_companion_descriptor** result) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    const std::uint8_t* bytes = sim::findCompanion(*endpoint, error);
    if (bytes == nullptr) {
        return error;
    }
    void* made = std::calloc(1, sizeof(libusb_ss_endpoint_companion_descriptor));
    *result = static_cast<libusb_ss_endpoint_companion_descriptor*>(made);
    **result = {bytes[0], bytes[1], bytes[2], bytes[3], sim::wordAt(bytes + 4)};
    return LIBUSB_SUCCESS;
}

void libusb_free_ss_endpoint_companion_descriptor(libusb_ss_endpoint_companion_descriptor* descriptor) {
    SIM_ENTER_VOID();
    std::free(descriptor);
}

int libusb_get_interface_association_descriptors(libusb_device* given, uint8_t index,
                                                 sim::Associations** array) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr || array == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto& all = device->info->configurationDescriptors;
    return sim::readAssociations(index < all.size() ? &all[index] : nullptr, array);
}

int libusb_get_active_interface_association_descriptors(libusb_device* given, sim::Associations** array) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr || array == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto active = simbus::Bus::instance().configuration(device->info->connection);
    if (!active) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return sim::readAssociations(*active == 0 ? nullptr : sim::configurationOf(*device->info, *active),
                                 array);
}

void libusb_free_interface_association_descriptors(sim::Associations* array) {
    SIM_ENTER_VOID();
    if (array != nullptr) {
        std::free(const_cast<libusb_interface_association_descriptor*>(array->iad));
        std::free(array);
    }
}
