#include "Devices.h"

#include <algorithm>
#include <iterator>

#include "Checks.h"

namespace sim {

namespace {

std::uint16_t word(const simbus::Bytes& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8U);
}

libusb_device_descriptor decode(const simbus::Bytes& bytes) {
    libusb_device_descriptor descriptor{};
    descriptor.bLength = bytes[0];
    descriptor.bDescriptorType = bytes[1];
    descriptor.bcdUSB = word(bytes, 2);
    descriptor.bDeviceClass = bytes[4];
    descriptor.bDeviceSubClass = bytes[5];
    descriptor.bDeviceProtocol = bytes[6];
    descriptor.bMaxPacketSize0 = bytes[7];
    descriptor.idVendor = word(bytes, 8);
    descriptor.idProduct = word(bytes, 10);
    descriptor.bcdDevice = word(bytes, 12);
    descriptor.iManufacturer = bytes[14];
    descriptor.iProduct = bytes[15];
    descriptor.iSerialNumber = bytes[16];
    descriptor.bNumConfigurations = bytes[17];
    return descriptor;
}

template <class Context>
auto findConnection(Context& context, simbus::ConnectionId connection) {
    return std::find_if(context.devices.begin(), context.devices.end(),
                        [&](const libusb_device* device) { return device->info->connection == connection; });
}

void notify(libusb_context& context, libusb_device& device, libusb_hotplug_event event) {
    context.messages.push_back({&device, event});
    wakeHandler(context);
}

void freeUnlessReferred(libusb_device& device) {
    if (device.callerReferences == 0 && device.ownReferences == 0) {
        state().devices.retire(&device);
    }
}

}  // namespace

void deviceArrived(libusb_context& context, const simbus::DeviceInfoPtr& info, bool tell) {
    constexpr std::size_t kWhole = 18;
    if (info->deviceDescriptor.size() < kWhole ||
        findConnection(context, info->connection) != context.devices.end()) {
        return;  // a host does not list a device without a complete descriptor
    }
    auto* device = new libusb_device{&context, info, decode(info->deviceDescriptor)};
    state().devices.add(device, device);
    context.devices.insert(context.devices.begin(), device);
    if (tell) {
        notify(context, *device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
    }
}

void deviceLeft(libusb_context& context, const simbus::DeviceInfo& info) {
    const auto found = findConnection(context, info.connection);
    if (found == context.devices.end()) {
        return;
    }
    libusb_device& device = **found;
    device.attached = false;
    context.devices.erase(found);
    notify(context, device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);  // passes on the connection's reference
}

libusb_device* findDevice(const libusb_context& context, simbus::ConnectionId connection) {
    const auto found = findConnection(context, connection);
    return found == context.devices.end() ? nullptr : *found;
}

void holdDevice(libusb_device& device) {
    ++device.ownReferences;
}

void releaseDevice(libusb_device& device) {
    --device.ownReferences;
    freeUnlessReferred(device);
}

namespace {

void unreference(const char* function, libusb_device* given) {
    libusb_device* device = checkDevice(function, given);
    if (device == nullptr) {
        return;
    }
    if (device->callerReferences == 0) {
        violation(function, "device " + nameOf(*device) + " has no reference of the caller to give back");
        return;
    }
    --device->callerReferences;
    freeUnlessReferred(*device);
}

}  // namespace

}  // namespace sim

using sim::StateLock;

ssize_t libusb_get_device_list(libusb_context* given, libusb_device*** list) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    auto* record = new sim::DeviceListRecord{context, context->devices};
    for (libusb_device* device : record->devices) {
        ++device->callerReferences;
    }
    const auto count = static_cast<ssize_t>(record->devices.size());
    record->devices.push_back(nullptr);
    *list = record->devices.data();
    sim::state().lists.add(*list, record);
    return count;
}

void libusb_free_device_list(libusb_device** list, int unreferenceDevices) {
    SIM_ENTER_VOID();
    if (list == nullptr) {
        return;
    }
    const StateLock lock(sim::state().mutex);
    sim::Registry<sim::DeviceListRecord>& lists = sim::state().lists;
    if (lists.find(list) == nullptr) {
        sim::violation(__func__,
                       lists.wasGivenBack(list) ? "list is freed twice" : "list was never handed out");
        return;
    }
    for (libusb_device** device = list; unreferenceDevices != 0 && *device != nullptr; ++device) {
        sim::unreference(__func__, *device);
    }
    lists.retire(list);
}

libusb_device* libusb_ref_device(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    libusb_device* device = sim::checkDevice(__func__, given);
    if (device != nullptr) {
        ++device->callerReferences;
    }
    return given;
}

void libusb_unref_device(libusb_device* given) {
    SIM_ENTER_VOID();
    if (given == nullptr) {
        return;
    }
    const StateLock lock(sim::state().mutex);
    sim::unreference(__func__, given);
}

int libusb_get_device_descriptor(libusb_device* given, libusb_device_descriptor* descriptor) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    *descriptor = device->descriptor;
    return LIBUSB_SUCCESS;
}

uint8_t libusb_get_bus_number(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr ? std::uint8_t{0} : device->info->busNumber;
}

uint8_t libusb_get_device_address(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr ? std::uint8_t{0} : device->info->address;
}

uint8_t libusb_get_port_number(libusb_device* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    return device == nullptr ? std::uint8_t{0} : device->info->ports.back();
}

int libusb_get_device_speed(libusb_device* given) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_device* device = sim::checkDevice(__func__, given);
    if (device == nullptr) {
        return LIBUSB_SPEED_UNKNOWN;
    }
    switch (device->info->speed) {
        case simbus::Speed::full:
            return LIBUSB_SPEED_FULL;
        case simbus::Speed::high:
            return LIBUSB_SPEED_HIGH;
        default:
            return LIBUSB_SPEED_SUPER;
    }
}
