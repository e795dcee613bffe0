// The drop-in hidapi (hidraw flavour): its public functions over the HID interfaces of the simulated bus.
#pragma GCC visibility push(default)
#include <hidapi/hidapi.h>
#pragma GCC visibility pop

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "UsbHid.h"

/// First line of every function that returns a code: counts the call and makes it fail if a test asks for
/// that.
#define SIM_ENTER(failed)                         \
    static simbus::CallPoint callPoint(__func__); \
    if (callPoint.enter().has_value()) {          \
        return failed;                            \
    }

struct hid_device_ {
    std::unique_ptr<sim::HidOpening> opening;
    bool blocking = true;
    bool hasReport = false;  // the last read returned a report; it counts as taken at the next read
};

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

hid_device_info* describe(const sim::HidInterface& interface) {
    const simbus::DeviceInfo& device = *interface.device;
    const simbus::Bytes& descriptor = device.deviceDescriptor;
    auto* info = static_cast<hid_device_info*>(std::calloc(1, sizeof(hid_device_info)));
    info->path = copyOf(pathOf(interface));
    info->vendor_id = wordAt(descriptor, 8);
    info->product_id = wordAt(descriptor, 10);
    info->release_number = wordAt(descriptor, 12);
    info->manufacturer_string = copyOf(sim::readString(device, byteAt(descriptor, 14)));
    info->product_string = copyOf(sim::readString(device, byteAt(descriptor, 15)));
    info->serial_number = copyOf(asTheKernelKeepsIt(sim::readString(device, byteAt(descriptor, 16))));
    info->usage_page = 0xFF00;
    info->usage = 1;
    info->interface_number = interface.at.number;
    info->bus_type = HID_API_BUS_USB;
    return info;
}

bool matches(const sim::HidInterface& interface, unsigned short vendorId, unsigned short productId) {
    const simbus::Bytes& descriptor = interface.device->deviceDescriptor;
    return (vendorId == 0 || vendorId == wordAt(descriptor, 8)) &&
           (productId == 0 || productId == wordAt(descriptor, 10));
}

int readReport(hid_device* device, unsigned char* data, size_t length, int milliseconds) {
    const auto timeout =
        milliseconds < 0 ? std::nullopt : std::make_optional(std::chrono::milliseconds(milliseconds));
    if (device->hasReport) {
        sim::countReportTaken();
    }
    const int count = device->opening->read(data, length, timeout);
    device->hasReport = count > 0;
    return count;
}

}  // namespace

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
            link = &(*link)->next;
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

hid_device* hid_open_path(const char* path) {
    SIM_ENTER(nullptr)
    for (const sim::HidInterface& interface : sim::findHidInterfaces()) {
        if (pathOf(interface) == path) {
            auto opening = sim::openHid(interface);
            if (opening == nullptr) {
                return nullptr;
            }
            simbus::Bus::instance().addToTally(kOpenDevices, 1);
            return new hid_device_{std::move(opening)};
        }
    }
    return nullptr;
}

void hid_close(hid_device* device) {
    if (device != nullptr) {
        simbus::Bus::instance().addToTally(kOpenDevices, -1);
        delete device;
    }
}

int hid_write(hid_device* device, const unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    if (data == nullptr || length == 0) {
        return -1;
    }
    // Report id 0 means no id; it is not sent, but counts in the result.
    const size_t unnumbered = data[0] == 0 ? 1 : 0;
    const int sent = device->opening->write(data + unnumbered, length - unnumbered);
    return sent < 0 ? -1 : sent + static_cast<int>(unnumbered);
}

int hid_read_timeout(hid_device* device, unsigned char* data, size_t length, int milliseconds) {
    SIM_ENTER(-1)
    return readReport(device, data, length, milliseconds);
}

int hid_read(hid_device* device, unsigned char* data, size_t length) {
    SIM_ENTER(-1)
    return readReport(device, data, length, device->blocking ? -1 : 0);
}

int hid_set_nonblocking(hid_device* device, int nonblock) {
    SIM_ENTER(-1)
    device->blocking = nonblock == 0;
    return 0;
}

const wchar_t* hid_error(hid_device* /*device*/) {
    return L"simulated bus";
}

const hid_api_version* hid_version() {
    static const hid_api_version version = {0, 13, 1};
    return &version;
}

const char* hid_version_str() {
    return "0.13.1";
}
