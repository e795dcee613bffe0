#pragma once

#include "ground/DeviceRecords.h"

// Descriptor and endpoint queries, answered from the copies in the record, without device traffic, whether
// the record is open or not. A null buffer receives nothing and does not change the result.

/// Values of `type`.
constexpr int32_t kDeviceDescriptorQuery = 1;
constexpr int32_t kConfigurationDescriptorQuery = 2;
constexpr int32_t kStringQuery = 3;
constexpr int32_t kInterfaceDescriptorQuery = 4;
constexpr int32_t kEndpointDescriptorQuery = 5;

/// Bytes of `buffer` that a query of this type and size may write.
int32_t descriptorQueryBytes(int32_t type, int32_t size);

/// Copies a descriptor to `buffer`, whose length in bytes the caller passes as `size`. Returns the bytes
/// copied, or -131 when the record has no such descriptor, -114 for type 4, for a type outside 1 to 5 and for
/// a string index outside 1 to 3.
///  - type 1, device: 18 bytes;
///  - type 2, configuration: the lesser of `size` and the bytes stored, which are at most 512;
///  - type 3, string as NUL-terminated text, `index` 1 manufacturer, 2 product, 3 serial number: its length
///    when it fits with its terminator; else `size`, with the text cut at size - 1 (a `size` below 2 writes
///    nothing);
///  - type 5, endpoint whose address is the low 8 bits of `index`: 7 bytes, or `size` when that is 1 to 6.
/// Deliberate: type 1 copies 18 bytes even when `size` is smaller; `buffer` must hold them.
int32_t LibUSB_GetDeviceDescriptor(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, int32_t type,
                                   int32_t index, int32_t size);

/// Bytes of one endpoint in the endpoint list.
constexpr int32_t kEndpointListEntryBytes = 8;
/// Writes 8 bytes per endpoint to `buffer`: address, wMaxPacketSize, bmAttributes, direction (1 IN, 0 OUT),
/// each 16 bits little endian. Returns the number of endpoints, 0 to 16; with a null buffer it only counts.
/// Deliberate: this order is not that of the fields of tagUSB_ENDPOINT_INFO.
int32_t LibUSB_GetEndpointList(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer);
