#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

/// Bytes of the text buffers of GetStringProperty.
constexpr int kPropertyTextBytes = 128;

/// Reads a number of a service as a signed 16-bit one to `*value`, 0 to 0x7FFF. 0, or -1 when the service has
/// none of that name or a larger one; `*value` stays as it was then.
int GetIntProperty(io_service_t service, CFStringRef key, int16_t* value);

/// Reads a text of a service as UTF-8 to `text` (kPropertyTextBytes bytes), NUL-terminated; an empty one when
/// it has more than 127 bytes. 0, or -1 with "?" in `text` when the service has none of that name.
int GetStringProperty(io_service_t service, CFStringRef key, char* text);
