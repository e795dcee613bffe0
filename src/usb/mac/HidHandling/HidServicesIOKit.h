#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

#include "ground/DeviceRecords.h"

/// Reads a numeric property of a service into `*value`, 0 to 0x7FFF. Returns 0, or -1, leaving `*value`
/// unchanged, when the service has no such number or it is larger.
int GetIntProperty(io_service_t service, CFStringRef key, int16_t* value);

/// Reads a string property of a service as UTF-8 into `text` (kStringBytes bytes), NUL-terminated; a
/// string of more than 127 bytes yields an empty one. Returns 0, or -1 with "?" in `text` when the service
/// has no such string.
int GetStringProperty(io_service_t service, CFStringRef key, char* text);
