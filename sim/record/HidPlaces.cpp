#include "HidPlaces.h"

#include <dlfcn.h>
#include <libusb.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <type_traits>

#include "Forward.h"
#include "UsbDescriptors.h"

namespace simbus::record {

namespace {

namespace fs = std::filesystem;

/// The folder in which the system describes a hidraw node; empty for any other path.
fs::path folderOf(const std::string& path) {
    const fs::path node(path);
    return node.parent_path() == "/dev" ? fs::path("/sys/class/hidraw") / node.filename() / "device"
                                        : fs::path();
}

int numberIn(const fs::path& file) {
    int number = -1;
    std::ifstream(file) >> number;
    return number;
}

/// Bus and address of the device of a hidraw node.
std::optional<Place> placeOfNode(const std::string& path) {
    std::error_code problem;
    const fs::path hid = fs::canonical(folderOf(path), problem);
    const fs::path device = hid.parent_path().parent_path();
    const int bus = problem ? -1 : numberIn(device / "busnum");
    const int address = problem ? -1 : numberIn(device / "devnum");
    if (bus < 0 || address < 0) {
        return std::nullopt;
    }
    return Place{static_cast<std::uint16_t>(bus), static_cast<std::uint8_t>(address)};
}

/// A function of the libusb that is loaded for this.
#define USB(name) (reinterpret_cast<decltype(&(name))>(dlsym(library, #name)))

struct Found {
    Place place;
    Bytes device;
    std::vector<Bytes> configurations;
};

Found describe(void* library, libusb_device* device, const libusb_device_descriptor& descriptor) {
    Found found;
    found.place = {USB(libusb_get_bus_number)(device), USB(libusb_get_device_address)(device)};
    found.device = bytesOf(descriptor);
    for (std::uint8_t i = 0; i < descriptor.bNumConfigurations; ++i) {
        libusb_config_descriptor* configuration = nullptr;
        if (USB(libusb_get_config_descriptor)(device, i, &configuration) == LIBUSB_SUCCESS) {
            found.configurations.push_back(bytesOf(*configuration));
            USB(libusb_free_config_descriptor)(configuration);
        }
    }
    return found;
}

/// The device of the node, or the first with the ids.
std::optional<Found> findWith(void* library, libusb_context* context, const hid_device_info& info) {
    const std::optional<Place> node = placeOfNode(info.path);
    libusb_device** list = nullptr;
    std::optional<Found> found;
    const ssize_t count = USB(libusb_get_device_list)(context, &list);
    for (ssize_t i = 0; i < count && !found; ++i) {
        libusb_device_descriptor descriptor{};
        const bool isHere = !node || (node->bus == USB(libusb_get_bus_number)(list[i]) &&
                                      node->device == USB(libusb_get_device_address)(list[i]));
        if (isHere && USB(libusb_get_device_descriptor)(list[i], &descriptor) == LIBUSB_SUCCESS &&
            descriptor.idVendor == info.vendor_id && descriptor.idProduct == info.product_id) {
            found = describe(library, list[i], descriptor);
        }
    }
    if (count >= 0) {
        USB(libusb_free_device_list)(list, 1);
    }
    return found;
}

std::optional<Found> findDevice(const hid_device_info& info) {
    static void* const library = loadReal("libusb-1.0.so.0");
    libusb_context* context = nullptr;
    if (library == nullptr || USB(libusb_init)(&context) != LIBUSB_SUCCESS) {
        return std::nullopt;
    }
    std::optional<Found> found = findWith(library, context, info);
    USB(libusb_exit)(context);
    return found;
}

/// A device with one interface, for one that libusb does not show.
Found inventDevice(const hid_device_info& info, std::size_t reportSize) {
    const auto low = [](std::size_t word) { return static_cast<std::uint8_t>(word & 0xFFU); };
    const auto high = [](std::size_t word) { return static_cast<std::uint8_t>(word >> 8U & 0xFFU); };
    const auto number = static_cast<std::uint8_t>(std::max(info.interface_number, 0));
    Found found;
    constexpr std::uint8_t kFirstAddress = 100;  // real ones are lower, unless there are very many
    found.place = {0, static_cast<std::uint8_t>(kFirstAddress + (info.product_id + number) % 28)};
    found.device = {18,
                    LIBUSB_DT_DEVICE,
                    0,
                    2,
                    0,
                    0,
                    0,
                    64,
                    low(info.vendor_id),
                    high(info.vendor_id),
                    low(info.product_id),
                    high(info.product_id),
                    low(info.release_number),
                    high(info.release_number),
                    1,
                    2,
                    3,
                    1};
    found.configurations.push_back({9,
                                    LIBUSB_DT_CONFIG,
                                    34,
                                    0,
                                    1,
                                    1,
                                    0,
                                    0x80,
                                    50,
                                    9,
                                    LIBUSB_DT_INTERFACE,
                                    number,
                                    0,
                                    1,
                                    LIBUSB_CLASS_HID,
                                    0,
                                    0,
                                    0,
                                    9,
                                    LIBUSB_DT_HID,
                                    0x11,
                                    1,
                                    0,
                                    1,
                                    LIBUSB_DT_REPORT,
                                    low(reportSize),
                                    high(reportSize),
                                    7,
                                    LIBUSB_DT_ENDPOINT,
                                    0x81,
                                    LIBUSB_ENDPOINT_TRANSFER_TYPE_INTERRUPT,
                                    64,
                                    0,
                                    10});
    return found;
}

/// The interrupt endpoints of an interface, in its first setting.
void findEndpoints(const Bytes& configuration, HidPlace& place) {
    constexpr std::size_t kInterfaceSize = 9;
    constexpr std::size_t kEndpointSize = 7;
    bool isOurs = false;
    for (std::size_t at = 0; at + 1 < configuration.size() && configuration[at] != 0;
         at += configuration[at]) {
        const std::uint8_t* descriptor = configuration.data() + at;
        const std::size_t left = configuration.size() - at;
        if (descriptor[1] == LIBUSB_DT_INTERFACE && left >= kInterfaceSize) {
            isOurs = descriptor[2] == place.interface && descriptor[3] == 0;
        } else if (descriptor[1] == LIBUSB_DT_ENDPOINT && left >= kEndpointSize && isOurs &&
                   (descriptor[3] & LIBUSB_TRANSFER_TYPE_MASK) == LIBUSB_ENDPOINT_TRANSFER_TYPE_INTERRUPT) {
            const bool isIn = (descriptor[2] & LIBUSB_ENDPOINT_IN) != 0;
            (isIn ? place.inEndpoint : place.outEndpoint) = descriptor[2];
        }
    }
}

void recordString(const Place& place, std::uint8_t index, const wchar_t* text) {
    if (index == 0 || text == nullptr) {
        return;
    }
    constexpr std::size_t kMostUnits = 126;
    constexpr std::uint16_t kEnglish = 0x0409;
    Bytes descriptor = {0, LIBUSB_DT_STRING};
    const auto add = [&](std::uint32_t unit) {
        descriptor.push_back(static_cast<std::uint8_t>(unit & 0xFFU));
        descriptor.push_back(static_cast<std::uint8_t>(unit >> 8U & 0xFFU));
    };
    for (; *text != L'\0' && descriptor.size() < 2 * kMostUnits; ++text) {
        const auto character = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(*text));
        if (character >= 0x10000) {
            add(0xD800U + ((character - 0x10000U) >> 10U));
        }
        add(character >= 0x10000 ? 0xDC00U + (character & 0x3FFU) : character);
    }
    descriptor[0] = static_cast<std::uint8_t>(descriptor.size());
    recordDescriptor(place, LIBUSB_DT_STRING, index, kEnglish, descriptor);
}

}  // namespace

Bytes reportDescriptorOf(const std::string& path) {
    std::ifstream file(folderOf(path) / "report_descriptor", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

HidPlace recordHidDevice(const hid_device_info& info, const Bytes& reportDescriptor) {
    const Found found = findDevice(info).value_or(inventDevice(info, reportDescriptor.size()));
    HidPlace hid;
    hid.place = found.place;
    hid.interface = static_cast<std::uint8_t>(std::max(info.interface_number, 0));
    recordDescriptor(hid.place, LIBUSB_DT_DEVICE, 0, 0, found.device);
    for (std::size_t i = 0; i < found.configurations.size(); ++i) {
        recordDescriptor(hid.place, LIBUSB_DT_CONFIG, static_cast<std::uint8_t>(i), 0,
                         found.configurations[i]);
    }
    if (!found.configurations.empty()) {
        findEndpoints(found.configurations.front(), hid);
    }
    if (!reportDescriptor.empty()) {
        recordDescriptor(hid.place, LIBUSB_DT_REPORT, 0, hid.interface, reportDescriptor);
    }
    constexpr std::size_t kStrings = 14;  // where a device descriptor has the numbers of its strings
    recordDescriptor(hid.place, LIBUSB_DT_STRING, 0, 0, {4, LIBUSB_DT_STRING, 9, 4});
    recordString(hid.place, found.device[kStrings], info.manufacturer_string);
    recordString(hid.place, found.device[kStrings + 1], info.product_string);
    recordString(hid.place, found.device[kStrings + 2], info.serial_number);
    return hid;
}

}  // namespace simbus::record
