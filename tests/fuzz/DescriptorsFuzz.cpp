// Fuzzes the descriptors of devices: lists, splits, updates, queries, open and close.

#include <libusb.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "DescriptorBytes.h"
#include "FuzzBus.h"
#include "FuzzInput.h"
#include "MacOSXUSBAccess/io/DescriptorQueries.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "UsbTest.h"

namespace {

constexpr std::array<int32_t, 16> kSizes = {-1, 0, 1, 2, 5, 6, 7, 8, 17, 18, 19, 64, 125, 511, 512, 513};
constexpr std::array<int32_t, 5> kStringIndexes = {0, 1, 2, 3, 4};
constexpr std::array<int32_t, 5> kSomeAddresses = {0x01, 0x81, 0x82, 0x00, 0x181};

/// Byte offset of the vendor id in a device descriptor. The id must not change, or the list would not contain
/// the device.
constexpr std::size_t kVendorAt = 8;

constexpr const char* kHidInterface = R"({"interfaces": [{"number": 0, "hid": {"input": 64, "output": 64},
    "endpoints": [{"address": "0x81", "type": "interrupt", "interval": 1}]}]})";

std::string deviceDescriptorPatch(DescriptorBytes descriptor) {
    if (descriptor.empty()) {
        return "{}";
    }
    if (descriptor.size() >= kVendorAt + 2) {
        descriptor[kVendorAt] = kVendor & 0xFF;
        descriptor[kVendorAt + 1] = kVendor >> 8;
    }
    return R"({"rawDeviceDescriptor": ")" + hexOf(descriptor) + "\"}";
}

/// The number of bytes that a query may write: `size`, except for the two descriptors of a fixed length.
int32_t writable(int32_t type, int32_t size) {
    if (type == kDeviceDescriptorQuery) {
        return kStandardDeviceDescriptorBytes;
    }
    constexpr int32_t kEndpointBytes = 7;
    const bool cut = size >= 1 && size < kEndpointBytes;
    return type == kEndpointDescriptorQuery && !cut ? kEndpointBytes : std::max(size, 0);
}

void query(tagUSB_DEVICE_ACCESS_ENTRY& entry, int32_t type, int32_t index, int32_t size) {
    const int32_t room = writable(type, size);
    const auto buffer = std::make_unique<uint8_t[]>(static_cast<std::size_t>(room));
    const int32_t result = LibUSB_GetDeviceDescriptor(&entry, buffer.get(), type, index, size);
    require(result <= room && (result >= -1 || result == -114 || result == -131), "a query keeps its bounds");
    if (type == kConfigurationDescriptorQuery && result > 0) {
        require(std::memcmp(buffer.get(), entry.configDescriptor, static_cast<std::size_t>(result)) == 0,
                "a configuration query gives what is stored");
    }
    require(result == LibUSB_GetDeviceDescriptor(&entry, nullptr, type, index, size),
            "a query without a buffer has the same result");
}

void queryAll(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    for (const int32_t size : kSizes) {
        for (const int32_t type : {0, 1, 2, 4, 6}) {
            query(entry, type, 0, size);
        }
        for (const int32_t index : kStringIndexes) {
            query(entry, kStringQuery, index, size);
        }
        for (const int32_t address : kSomeAddresses) {
            query(entry, kEndpointDescriptorQuery, address, size);
        }
    }
    const auto bytes = static_cast<std::size_t>(entry.endpointCount) * 8;
    const auto buffer = std::make_unique<uint8_t[]>(bytes);
    require(LibUSB_GetEndpointList(&entry, buffer.get()) == entry.endpointCount, "all endpoints are listed");
    require(LibUSB_GetEndpointList(&entry, nullptr) == entry.endpointCount, "all endpoints are counted");
}

void requireSound(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    require(entry.endpointCount >= 0 && entry.endpointCount <= kMaxEndpoints, "16 endpoints at most");
    for (int32_t i = entry.endpointCount; i < kMaxEndpoints; ++i) {
        require(entry.endpoints[i].address == -1, "unused endpoints are marked");
    }
    require(entry.configDescriptorLength >= 0 && entry.configDescriptorLength <= kConfigDescriptorBytes,
            "a configuration fits its buffer");
    for (const auto& text : {entry.sManufacturer, entry.sProduct, entry.sSerialNumber}) {
        require(std::memchr(text, 0, kStringBytes) != nullptr, "a text ends");
    }
    require(entry.packetSize == (entry.isHid != 0 ? 64U : 512U), "nothing runs over the endpoints");
}

void useAll(uint32_t list) {
    for (auto* entry = LibUSB_EnumerateDeviceList(list, nullptr); entry != nullptr;
         entry = LibUSB_EnumerateDeviceList(list, entry)) {
        requireSound(*entry);
        queryAll(*entry);
        if (LibUSB_OpenDevice(entry) == 0) {
            queryAll(*entry);
            require(LibUSB_CloseDevice(entry) == 0, "what is open can be closed");
        }
        require(LibUSB_CloseDevice(entry) == -109, "what is closed cannot be closed");
    }
}

void update(uint32_t list) {
    int32_t status = 0;
    findDeviceList(list, status)->changePending.store(true);
    require(LibUSB_UpdateDeviceList(list, 0) == 0, "a list is updated");
}

/// Runs the parser of the drop-in libusb, of which the library uses only the length.
void parseAll(libusb_context* context) {
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    for (ssize_t i = 0; i < count; ++i) {
        libusb_config_descriptor* configuration = nullptr;
        if (libusb_get_config_descriptor(devices[i], 0, &configuration) == LIBUSB_SUCCESS) {
            libusb_free_config_descriptor(configuration);
        }
    }
    libusb_free_device_list(devices, 1);
}

}  // namespace

/// Input: flags (1: a HID device, 2: list created by usbCreateDeviceList), the configuration's claimed
/// length, device descriptor, configuration after the replug, configuration before it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const uint8_t flags = input.byte();
    const uint16_t claimedLength = input.word();
    const std::string identity =
        merged({(flags & 1) != 0 ? kHidInterface : "{}", deviceDescriptorPatch(input.counted())});
    const std::string later = rawConfiguration(input.counted());
    FuzzSession session({deviceJson("tool", merged({identity, rawConfiguration(input.rest())}))},
                        claimedLength);
    parseAll(session.context);
    const uint32_t list = (flags & 2) != 0 ? LibUSB_CreateDeviceList(session.context, kVendor)
                                           : LibUSB_CreateDeviceList2(session.context, 1, &kVendor);
    useAll(list);
    update(list);
    useAll(list);
    plugDevices({deviceJson("tool", merged({identity, later}))});
    update(list);
    useAll(list);
    return 0;
}
