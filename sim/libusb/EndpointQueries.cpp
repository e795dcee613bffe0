// What programs ask about endpoints and functions of a configuration: packet sizes, companions, associations.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

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

const libusb_endpoint_descriptor* findIn(const libusb_interface_descriptor& setting, unsigned char address) {
    const auto* end = setting.endpoint + setting.bNumEndpoints;
    const auto* found = std::find_if(setting.endpoint, end, [&](const libusb_endpoint_descriptor& each) {
        return each.bEndpointAddress == address;
    });
    return found == end ? nullptr : found;
}

/// The place of an alternate setting, counted from 0: not the numbers in its descriptor.
struct Place {
    int interface;
    int alternate;
};

/// Without a place, looks at all settings of all interfaces.
const libusb_endpoint_descriptor* findEndpoint(const ConfigRecord& record, const std::optional<Place>& place,
                                               unsigned char address) {
    if (place) {
        const auto interface = static_cast<std::size_t>(place->interface);
        const auto alternate = static_cast<std::size_t>(place->alternate);
        const bool exists =
            interface < record.interfaces.size() && alternate < record.interfaces[interface].shown.size();
        return exists ? findIn(record.interfaces[interface].shown[alternate], address) : nullptr;
    }
    for (const InterfaceStore& interface : record.interfaces) {
        for (const libusb_interface_descriptor& setting : interface.shown) {
            if (const auto* found = findIn(setting, address); found != nullptr) {
                return found;
            }
        }
    }
    return nullptr;
}

/// Looks for the companion among the descriptors that follow an endpoint's. Returns its first byte, or null
/// with the code in `error`.
const std::uint8_t* findCompanion(const libusb_endpoint_descriptor& endpoint, int& error) {
    const std::uint8_t* at = endpoint.extra;
    error = LIBUSB_ERROR_NOT_FOUND;
    for (int left = endpoint.extra_length; left >= 2; left -= at[0], at += at[0]) {
        const bool companion = at[1] == LIBUSB_DT_SS_ENDPOINT_COMPANION;
        if (at[0] < (companion ? LIBUSB_DT_SS_ENDPOINT_COMPANION_SIZE : 2) || (companion && at[0] > left)) {
            error = LIBUSB_ERROR_IO;
            return nullptr;
        }
        if (companion) {
            return at;
        }
    }
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

int sizeOf(const char* function, libusb_device* given, const std::optional<Place>& place,
           unsigned char address, Asked asked) {
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
    if (bytes->size() < LIBUSB_DT_CONFIG_SIZE) {
        return LIBUSB_ERROR_IO;
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
    return sim::sizeOf(__func__, device, std::nullopt, endpoint, sim::Asked::packet);
}

int libusb_get_max_iso_packet_size(libusb_device* device, unsigned char endpoint) {
    SIM_ENTER();
    return sim::sizeOf(__func__, device, std::nullopt, endpoint, sim::Asked::interval);
}

int libusb_get_max_alt_packet_size(libusb_device* device, int interface, int alternate,
                                   unsigned char endpoint) {
    SIM_ENTER();
    return sim::sizeOf(__func__, device, sim::Place{interface, alternate}, endpoint, sim::Asked::interval);
}

int libusb_get_ss_endpoint_companion_descriptor(libusb_context* /*context*/,
                                                const libusb_endpoint_descriptor* endpoint,
                                                libusb_ss_endpoint_companion_descriptor** result) {
    SIM_ENTER();
    *result = nullptr;
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
