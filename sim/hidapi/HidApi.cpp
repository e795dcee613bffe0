// The drop-in hidapi: its device list, openings and texts, over the HID interfaces of the simulated bus.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "HidDevice.h"
#include "HostRequests.h"

namespace {

constexpr const char* kOpenDevices = "hid devices open";

std::string pathOf(const sim::HidInterface& interface) {
    return "simulated-" + std::to_string(interface.device->connection) + ":" +
           std::to_string(interface.at.number);
}

char* copyOf(const std::string& text) {
    return strdup(text.c_str());
}
wchar_t* copyOf(const std::optional<std::wstring>& text) {
    return wcsdup(text.value_or(L"").c_str());
}

/// The kernel's HID driver keeps 64 bytes of a serial number, including the NUL.
std::optional<std::wstring> asTheKernelKeepsIt(std::optional<std::wstring> serial) {
    constexpr std::size_t kMostCharacters = 63;
    if (serial && serial->size() > kMostCharacters) {
        serial->resize(kMostCharacters);
    }
    return serial;
}

std::uint16_t wordAt(const simbus::Bytes& bytes, std::size_t at) {
    return at + 1 < bytes.size() ? static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8)
                                 : std::uint16_t{0};
}

std::uint8_t byteAt(const simbus::Bytes& bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : std::uint8_t{0};
}

bool matches(const sim::HidInterface& interface, unsigned short vendorId, unsigned short productId) {
    const simbus::Bytes& descriptor = interface.device->deviceDescriptor;
    return (vendorId == 0 || vendorId == wordAt(descriptor, 8)) &&
           (productId == 0 || productId == wordAt(descriptor, 10));
}

hid_device_info* describeOne(const sim::HidInterface& interface, const sim::Usage& usage) {
    const simbus::DeviceInfo& device = *interface.device;
    const simbus::Bytes& descriptor = device.deviceDescriptor;
    auto* info = static_cast<hid_device_info*>(std::calloc(1, sizeof(hid_device_info)));
    info->path = copyOf(pathOf(interface));
    info->vendor_id = wordAt(descriptor, 8);
    info->product_id = wordAt(descriptor, 10);
    info->release_number = wordAt(descriptor, 12);
    info->manufacturer_string = copyOf(simbus::readString(device, byteAt(descriptor, 14)));
    info->product_string = copyOf(simbus::readString(device, byteAt(descriptor, 15)));
    info->serial_number = copyOf(asTheKernelKeepsIt(simbus::readString(device, byteAt(descriptor, 16))));
    info->usage_page = usage.page;
    info->usage = usage.usage;
    info->interface_number = interface.at.number;
    info->bus_type = HID_API_BUS_USB;
    return info;
}

/// What the last call without a device has failed with; empty when it succeeded.
std::wstring& globalError() {
    static auto* const text = new std::wstring;
    return *text;
}

hid_device* notOpened(const wchar_t* problem) {
    globalError() = problem;
    return nullptr;
}

}  // namespace

hid_device_info* sim::describe(const HidInterface& interface) {
    hid_device_info* first = nullptr;
    hid_device_info** link = &first;
    for (const Usage& usage : usagesOf(interface)) {
        *link = describeOne(interface, usage);
        link = &(*link)->next;
    }
    return first;
}

int sim::copyText(hid_device& device, const wchar_t* text, wchar_t* buffer, size_t length) {
    if (text == nullptr || buffer == nullptr || length == 0) {
        return noted(device, -1, L"no such string, or no buffer for it");
    }
    std::wcsncpy(buffer, text, length);
    buffer[length - 1] = L'\0';
    return noted(device, 0, L"");
}

int sim::noted(hid_device& device, int result, const wchar_t* problem) {
    device.error = result < 0 ? problem : L"";
    return result;
}

int hid_init() {
    SIM_ENTER(-1)
    return 0;
}

int hid_exit() {
    SIM_ENTER(-1)
    return 0;
}

hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    SIM_ENTER(nullptr)
    hid_device_info* first = nullptr;
    hid_device_info** link = &first;
    for (const sim::HidInterface& interface : sim::findHidInterfaces()) {
        if (matches(interface, vendor_id, product_id)) {
            *link = describe(interface);
            while (*link != nullptr) {
                link = &(*link)->next;
            }
        }
    }
    return first;
}

void hid_free_enumeration(hid_device_info* devs) {
    while (devs != nullptr) {
        hid_device_info* next = devs->next;
        std::free(devs->path);
        std::free(devs->serial_number);
        std::free(devs->manufacturer_string);
        std::free(devs->product_string);
        std::free(devs);
        devs = next;
    }
}

hid_device* hid_open(unsigned short vendor_id, unsigned short product_id, const wchar_t* serial_number) {
    SIM_ENTER(nullptr)
    hid_device_info* all = hid_enumerate(vendor_id, product_id);
    std::string path;
    for (const hid_device_info* each = all; each != nullptr && path.empty(); each = each->next) {
        const bool same = each->vendor_id == vendor_id && each->product_id == product_id;
        if (same && (serial_number == nullptr || std::wcscmp(serial_number, each->serial_number) == 0)) {
            path = each->path;
        }
    }
    hid_free_enumeration(all);
    return path.empty() ? notOpened(L"no device with these ids") : hid_open_path(path.c_str());
}

hid_device* hid_open_path(const char* path) {
    SIM_ENTER(nullptr)
    for (const sim::HidInterface& interface : sim::findHidInterfaces()) {
        if (pathOf(interface) == path) {
            auto opening = sim::openHid(interface);
            if (opening == nullptr) {
                return notOpened(L"the device cannot be opened");
            }
            simbus::Bus::instance().addToTally(kOpenDevices, 1);
            globalError().clear();
            auto* device = new hid_device_;
            device->opening = std::move(opening);
            return device;
        }
    }
    return notOpened(L"no device with this path");
}

void hid_close(hid_device* device) {
    if (device != nullptr) {
        simbus::Bus::instance().addToTally(kOpenDevices, -1);
        hid_free_enumeration(device->info);
        delete device;
    }
}

hid_device_info* hid_get_device_info(hid_device* device) {
    SIM_ENTER(nullptr)
    if (device->info == nullptr) {
        device->info = sim::describe(device->opening->interface());
    }
    return device->info;
}

int hid_get_manufacturer_string(hid_device* device, wchar_t* string, size_t maxlen) {
    SIM_ENTER(-1)
    return sim::copyText(*device, hid_get_device_info(device)->manufacturer_string, string, maxlen);
}

int hid_get_product_string(hid_device* device, wchar_t* string, size_t maxlen) {
    SIM_ENTER(-1)
    return sim::copyText(*device, hid_get_device_info(device)->product_string, string, maxlen);
}

int hid_get_serial_number_string(hid_device* device, wchar_t* string, size_t maxlen) {
    SIM_ENTER(-1)
    return sim::copyText(*device, hid_get_device_info(device)->serial_number, string, maxlen);
}

const wchar_t* hid_error(hid_device* device) {
    const std::wstring& text = device == nullptr ? globalError() : device->error;
    return text.empty() ? L"Success" : text.c_str();
}

const hid_api_version* hid_version() {
    static const hid_api_version version = {0, 15, 0};
    return &version;
}

const char* hid_version_str() {
    return "0.15.0";
}
