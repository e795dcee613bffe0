#pragma once

#include "ground/DeviceRecords.h"

// Reads descriptors and strings from a device; helpers for endpoint arrays and device classes.

/// The `kind` of an interface class; any other value means a device class.
constexpr uint32_t kInterfaceClass = 1;

/// True for the classes that the library drives: a device class of 0x00, 0x03, 0xEF or 0xFF, an interface
/// class of 0x00, 0x03, 0xEF, 0xFE or 0xFF.
bool inClassList(uint32_t classCode, uint32_t kind);

/// Sets `n` entries to unused (every byte 0xFF); `n` below 1 does nothing.
void clearEndpointList(int32_t n, tagUSB_ENDPOINT_INFO* endpoints);

/// Clears `n` entries, then fills them from the endpoint descriptors that follow the interface descriptor at
/// `bytes`. Stops at the next interface descriptor, a descriptor of length 0, the end of the `length` bytes
/// or the n-th endpoint. Returns the number of entries filled.
int32_t setEndpointList(int32_t n, tagUSB_ENDPOINT_INFO* endpoints, const uint8_t* bytes, int32_t length);

/// Clears the record's configuration: length, bytes and endpoints.
void clearConfiguration(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// True when the record's device descriptor is known and defers the class to the interfaces (0x00 or 0xEF).
bool classLeftToInterfaces(const tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Copies the device's configuration descriptor of index 0, in wire format, to `buffer` (`size` bytes, the
/// rest zeroed). The HIDAccess of a HID record reads it; the device of any other record must be open. Returns
/// the bytes copied, at most `size`; 0 when the device claims a total length of 0; -170 for a null buffer,
/// -103 without a handle, -131 when it cannot be read.
int32_t fillConfigBuffer(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, int32_t size);

/// Copies the lesser of `size` and 18 bytes of the device descriptor to `buffer`. Returns the bytes copied,
/// or -131.
int32_t fillDevDescBuffer(tagUSB_DEVICE_ACCESS_ENTRY* entry, uint8_t* buffer, uint64_t size);

/// Reads a string descriptor in the device's first language into `buffer` (`length` bytes, NUL-terminated on
/// success), one byte per character: a unit below 0x100 becomes its low byte, any other '?'. Returns the
/// characters stored (at most length - 1), libusb's error code, or -1 when the answer is not a string
/// descriptor; on failure the buffer is unchanged.
int32_t legacy_libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index,
                                                  uint8_t* buffer, int32_t length);

/// Reads a string descriptor into one of a record's string fields, at most 125 characters. On failure the
/// field is unchanged.
void readString(libusb_device_handle* handle, uint8_t index, char (&field)[kStringBytes]);
