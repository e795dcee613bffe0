#include "MacOSXUSBAccess/records/Descriptors.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "ground/ResultCodes.h"
#include "hid/HIDAccess.h"

namespace {

constexpr unsigned int kRequestTimeoutMs = 1000;

/// Runs a synchronous request to a device, in which libusb handles the session's events.
template <class Request>
int32_t blockingRequest(Request request) {
    announceWait();
    const int32_t result = request();
    handOverCompletions(g_liveContext);
    return result;
}

int32_t getDescriptor(libusb_device_handle* handle, int type, uint8_t index, uint16_t language,
                      uint8_t* buffer, uint16_t size) {
    return blockingRequest([&] {
        return libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                       static_cast<uint16_t>(type << 8 | index), language, buffer, size,
                                       kRequestTimeoutMs);
    });
}

tagUSB_ENDPOINT_INFO endpointAt(const DescriptorWalk& walk) {
    return {walk.byte(2), walk.byte(2) >> 7, walk.byte(3), walk.word(4)};
}

/// wTotalLength of the active configuration, or -131. `numConfigurations` receives bNumConfigurations.
int32_t activeConfigurationLength(libusb_device* device, int32_t& numConfigurations) {
    libusb_device_descriptor descriptor{};
    int result = libusb_get_device_descriptor(device, &descriptor);
    if (result < 0) {
        debug_log("[fillConfigBuffer] libusb_get_device_descriptor error: %s", libusb_strerror(result));
        return kNotAvailable;
    }
    numConfigurations = descriptor.bNumConfigurations;
    // Deliberate: never freed, so each enumeration of a device leaks its parsed configuration.
    libusb_config_descriptor* configuration = nullptr;
    result = libusb_get_active_config_descriptor(device, &configuration);
    if (result < 0) {
        debug_log("[fillConfigBuffer] libusb_get_active_config_descriptor error: %s",
                  libusb_strerror(result));
        return kNotAvailable;
    }
    return configuration->wTotalLength;
}

}  // namespace

bool inClassList(uint32_t classCode, uint32_t kind) {
    const bool forInterfaces = kind == kInterfaceClass && classCode == LIBUSB_CLASS_APPLICATION;
    return classCode == LIBUSB_CLASS_PER_INTERFACE || classCode == LIBUSB_CLASS_HID ||
           classCode == LIBUSB_CLASS_MISCELLANEOUS || classCode == LIBUSB_CLASS_VENDOR_SPEC || forInterfaces;
}

void clearEndpointList(int32_t n, tagUSB_ENDPOINT_INFO* endpoints) {
    std::fill_n(endpoints, std::max(n, 0), tagUSB_ENDPOINT_INFO{-1, -1, -1, -1});
}

int32_t setEndpointList(int32_t n, tagUSB_ENDPOINT_INFO* endpoints, const uint8_t* bytes, int32_t length) {
    clearEndpointList(n, endpoints);
    int32_t stored = 0;
    DescriptorWalk walk(bytes, length);
    if (walk.atDescriptor()) {
        walk.advance();  // past the interface descriptor itself
    }
    for (; walk.atDescriptor() && walk.type() != kInterfaceDescriptor && stored < n; walk.advance()) {
        if (walk.type() == kEndpointDescriptor) {
            endpoints[stored++] = endpointAt(walk);
        }
    }
    return stored;
}

void clearConfiguration(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    entry.configDescriptorLength = 0;
    std::memset(entry.configDescriptor, 0, sizeof entry.configDescriptor);
    entry.endpointCount = 0;
    clearEndpointList(kMaxEndpoints, entry.endpoints);
}

bool classLeftToInterfaces(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const uint8_t deviceClass = entry.deviceDescriptor[4];
    return entry.deviceDescriptorLength >= 5 &&
           (deviceClass == LIBUSB_CLASS_PER_INTERFACE || deviceClass == LIBUSB_CLASS_MISCELLANEOUS);
}

int32_t fillConfigBuffer(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, int32_t size) {
    if (buffer == nullptr) {
        debug_log("[fillConfigBuffer] pBuffer was NULL");
        return kNoBuffer;
    }
    const int32_t room = std::max(size, 0);
    std::memset(buffer, 0, static_cast<size_t>(room));
    if (entry->isHid != 0 && entry->pHIDAccess != nullptr) {
        return blockingRequest([&] { return entry->pHIDAccess->GetConfigDescriptorBuffer(buffer, room); });
    }
    if (entry->hDevice == nullptr) {
        return kNoSuchList;
    }
    int32_t numConfigurations = 0;
    int32_t wanted = activeConfigurationLength(entry->pDevice, numConfigurations);
    if (wanted <= 0) {
        return wanted;
    }
    if (wanted > size) {
        debug_log("[fillConfigBuffer] %d > %d (maxBufLen): clamping to %d", wanted, size, size);
        wanted = room;
    }
    if (numConfigurations >= 2) {
        debug_log("[fillConfigBuffer] more than one configuration: %d, using first one (index 0)",
                  numConfigurations);
    }
    const int32_t received =
        getDescriptor(entry->hDevice, LIBUSB_DT_CONFIG, 0, 0, buffer, static_cast<uint16_t>(wanted));
    if (received < 1) {
        debug_log("[fillConfigBuffer] libusb_get_descriptor error: %s", libusb_strerror(received));
        std::memset(buffer, 0, static_cast<size_t>(room));
        return kNotAvailable;
    }
    return received;
}

int32_t fillDevDescBuffer(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, uint64_t size) {
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(entry->pDevice, &descriptor) != 0) {
        return kNotAvailable;
    }
    const uint64_t count = std::min<uint64_t>(size, kStandardDeviceDescriptorBytes);
    std::memcpy(buffer, &descriptor, count);
    return static_cast<int32_t>(count);
}

int32_t legacy_libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index,
                                                  uint8_t* buffer, int32_t length) {
    constexpr int32_t kNoString = -1;
    constexpr uint16_t kAnswerBytes = 255;
    uint8_t answer[kAnswerBytes + 1] = {};  // one spare byte, for the high byte of a unit cut in half
    int32_t received = getDescriptor(handle, LIBUSB_DT_STRING, 0, 0, answer, kAnswerBytes);
    if (received < 4) {
        return received < 0 ? received : kNoString;
    }
    const auto language = static_cast<uint16_t>(answer[2] | answer[3] << 8);
    std::fill(std::begin(answer), std::end(answer), uint8_t{0});
    received = getDescriptor(handle, LIBUSB_DT_STRING, index, language, answer, kAnswerBytes);
    if (received < 0) {
        return received;
    }
    const int32_t claimed = answer[0];
    if (answer[1] != LIBUSB_DT_STRING || received < claimed) {
        return kNoString;
    }
    int32_t stored = 0;
    for (int32_t unit = 2; unit < claimed && stored < length - 1; unit += 2) {
        buffer[stored++] = answer[unit + 1] == 0 ? answer[unit] : uint8_t{'?'};
    }
    if (length > 0) {
        buffer[stored] = 0;
    }
    return stored;
}

void readString(libusb_device_handle* handle, uint8_t index, char (&field)[kStringBytes]) {
    constexpr int32_t kReadBytes = 126;
    legacy_libusb_get_string_descriptor_ascii(handle, index, reinterpret_cast<uint8_t*>(field), kReadBytes);
}
