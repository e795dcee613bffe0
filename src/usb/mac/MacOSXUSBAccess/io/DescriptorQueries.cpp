#include "MacOSXUSBAccess/io/DescriptorQueries.h"

#include <algorithm>
#include <cstring>

#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "ground/ResultCodes.h"

namespace {

constexpr int32_t kEndpointDescriptorBytes = 7;

/// Copies `count` bytes unless `buffer` is null. Returns the count, at least 0.
int32_t give(uint8_t* buffer, const void* bytes, int32_t count) {
    const int32_t given = std::max(count, 0);
    if (buffer != nullptr) {
        std::memcpy(buffer, bytes, static_cast<size_t>(given));
    }
    return given;
}

int32_t deviceQuery(const tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* buffer, int32_t size) {
    if (entry.deviceDescriptorLength < 1) {
        return kNotAvailable;
    }
    const bool fits = entry.deviceDescriptorLength < size;
    return give(buffer, entry.deviceDescriptor,
                fits ? entry.deviceDescriptorLength : kStandardDeviceDescriptorBytes);
}

int32_t configurationQuery(const tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* buffer, int32_t size) {
    if (entry.configDescriptorLength < 1) {
        return kNotAvailable;
    }
    return give(buffer, entry.configDescriptor, std::min(entry.configDescriptorLength, size));
}

int32_t stringQuery(const tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* buffer, int32_t index, int32_t size) {
    const char* const texts[] = {entry.sManufacturer, entry.sProduct, entry.sSerialNumber};
    if (index < 1 || index > 3) {
        return kBadArgument;
    }
    const char* text = texts[index - 1];
    const auto length = static_cast<int32_t>(std::strlen(text));
    if (length < size) {
        give(buffer, text, length + 1);
        return length;
    }
    if (size >= 2 && buffer != nullptr) {
        give(buffer, text, size - 1);
        buffer[size - 1] = 0;
    }
    return size;
}

int32_t endpointQuery(const tagUSB_DEVICE_ACCESS_ENTRY& entry, uint8_t* buffer, int32_t index, int32_t size) {
    const auto address = static_cast<uint8_t>(index);
    DescriptorWalk walk(entry.configDescriptor, entry.configDescriptorLength);
    while (walk.atDescriptor() && !(walk.type() == kEndpointDescriptor && walk.byte(2) == address)) {
        walk.advance();
    }
    if (!walk.atDescriptor()) {
        return kNotAvailable;
    }
    uint8_t descriptor[kEndpointDescriptorBytes];
    int32_t at = 0;
    for (uint8_t& each : descriptor) {
        each = walk.byte(at++);
    }
    return give(buffer, descriptor,
                size >= 1 ? std::min(size, kEndpointDescriptorBytes) : kEndpointDescriptorBytes);
}

}  // namespace

int32_t descriptorQueryBytes(int32_t type, int32_t size) {
    switch (type) {
        case kDeviceDescriptorQuery:
            return kStandardDeviceDescriptorBytes;
        case kEndpointDescriptorQuery:
            return kEndpointDescriptorBytes;
        default:
            return std::clamp(size, 0, kConfigDescriptorBytes);
    }
}

int32_t LibUSB_GetDeviceDescriptor(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, int32_t type,
                                   int32_t index, int32_t size) {
    switch (type) {
        case kDeviceDescriptorQuery:
            return deviceQuery(*entry, buffer, size);
        case kConfigurationDescriptorQuery:
            return configurationQuery(*entry, buffer, size);
        case kStringQuery:
            return stringQuery(*entry, buffer, index, size);
        case kEndpointDescriptorQuery:
            return endpointQuery(*entry, buffer, index, size);
        case kInterfaceDescriptorQuery:  // not offered
        default:
            return kBadArgument;
    }
}

int32_t LibUSB_GetEndpointList(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer) {
    const int32_t count = std::max(entry->endpointCount, 0);
    for (int32_t i = 0; i < count && buffer != nullptr; ++i) {
        const tagUSB_ENDPOINT_INFO& endpoint = entry->endpoints[i];
        for (const int32_t value :
             {endpoint.address, endpoint.maxPacketSize, endpoint.attributes, endpoint.direction}) {
            *buffer++ = static_cast<uint8_t>(value);
            *buffer++ = static_cast<uint8_t>(value >> 8);
        }
    }
    return count;
}
