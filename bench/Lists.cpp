// Measures device lists, compared with a plain libusb walk over the same devices that makes the same
// requests. Every device on the bus has the vendor id of the benchmarks; the scenario determines their
// number.
#include <libusb.h>

#include <string>
#include <vector>

#include "Library.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "Timing.h"

namespace {

constexpr unsigned kRequestTimeoutMs = 1000;

int getDescriptor(libusb_device_handle* handle, unsigned type, unsigned index, uint16_t language,
                  uint8_t* buffer, uint16_t size) {
    return libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                   static_cast<uint16_t>(type << 8U | index), language, buffer, size,
                                   kRequestTimeoutMs);
}

/// Reads a device's strings, its descriptors from libusb, and its configuration from the device.
bool readDevice(libusb_device* device) {
    libusb_device_descriptor descriptor{};
    libusb_device_handle* handle = nullptr;
    if (libusb_get_device_descriptor(device, &descriptor) != 0 || libusb_open(device, &handle) != 0) {
        return false;
    }
    uint8_t bytes[512] = {};
    for (const uint8_t index : {descriptor.iManufacturer, descriptor.iProduct, descriptor.iSerialNumber}) {
        getDescriptor(handle, LIBUSB_DT_STRING, 0, 0, bytes, 255);
        getDescriptor(handle, LIBUSB_DT_STRING, index, static_cast<uint16_t>(bytes[2] | bytes[3] << 8), bytes,
                      255);
    }
    libusb_config_descriptor* configuration = nullptr;
    const bool parsed = libusb_get_active_config_descriptor(device, &configuration) == 0;
    const bool read =
        parsed && getDescriptor(handle, LIBUSB_DT_CONFIG, 0, 0, bytes, configuration->wTotalLength) > 0;
    if (parsed) {
        libusb_free_config_descriptor(configuration);
    }
    libusb_close(handle);
    return read;
}

bool plainWalk(libusb_context* context) {
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    bool all = count >= 0;
    for (ssize_t i = 0; i < count; ++i) {
        all = readDevice(devices[i]) && all;
    }
    libusb_free_device_list(devices, 1);
    return all;
}

/// Marks the list as changed, as a hotplug event does.
void flag(uint32_t list) {
    int32_t status = 0;
    findDeviceList(list, status)->changePending.store(true);
}

template <class Call>
void add(const char* name, Call call) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        EachCall each(state);
        for (auto _ : state) {
            if (!each.time(call)) {
                break;
            }
        }
    })->UseManualTime();
}

/// Removes the newest list from the chain, which would keep it, so that each creation starts from the same
/// state.
void forgetNewestList() {
    int32_t status = 0;
    tagUSB_DEVICE_LIST* newest = findDeviceList(--g_NextDeviceListHandle, status);
    newest->pPrevList->pNextList = nullptr;
    delete newest;
}

/// Creates a list of every vendor, which is not watched.
void timeCreation(benchmark::State& state, libusb_context* context) {
    EachCall each(state);
    for (auto _ : state) {
        uint32_t list = 0;
        each.time([&] {
            list = LibUSB_CreateDeviceList(context, 0xFFFFFFFF);
            return LibUSB_GetDeviceFromIndex(list, 0) != nullptr;
        });
        LibUSB_ReleaseDeviceList(list);
        forgetNewestList();
    }
}

}  // namespace

int main(int argc, char** argv) {
    libusb_context* plain = nullptr;
    demand(libusb_init(&plain) == 0, "libusb does not start");
    Library library;
    add("plain_walk", [=] { return plainWalk(plain); });
    add("update_after_change", [list = library.list()] {
        flag(list);
        return LibUSB_UpdateDeviceList(list, 0) == 0;
    });
    add("update_unchanged", [list = library.list()] { return LibUSB_UpdateDeviceList(list, 0) == 0; });
    add("every_record", [list = library.list()] {
        uint32_t index = 0;
        while (LibUSB_GetDeviceFromIndex(list, index) != nullptr) {
            ++index;
        }
        return index > 0;
    });
    benchmark::RegisterBenchmark("create", [context = library.context()](benchmark::State& state) {
        timeCreation(state, context);
    })->UseManualTime();
    const int status = runBenchmarks(argc, argv);
    libusb_exit(plain);
    return status;
}
