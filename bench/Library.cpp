#include "Library.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"

Library::Library() {
    demand(LibUSB_Initialize(&context_) == 0, "the library does not start");
    list_ = LibUSB_CreateDeviceList2(context_, 1, &kBenchVendor);
}

Library::~Library() {
    LibUSB_ReleaseDeviceList(list_);
    LibUSB_Release(&context_);
}

tagUSB_DEVICE_ACCESS_ENTRY* Library::open(const char* serialNumber) {
    tagUSB_DEVICE_ACCESS_ENTRY* device = LibUSB_EnumerateDeviceList(list_, nullptr);
    while (device != nullptr && std::strcmp(device->sSerialNumber, serialNumber) != 0) {
        device = LibUSB_EnumerateDeviceList(list_, device);
    }
    demand(device != nullptr && LibUSB_OpenDevice(device) == 0,
           "the device cannot be opened through the library");
    return device;
}

void demand(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "bench: %s\n", what);
        std::exit(1);
    }
}
