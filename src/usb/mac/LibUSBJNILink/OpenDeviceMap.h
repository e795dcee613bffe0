#pragma once

#include <cstdint>
#include <map>

struct tagUSB_DEVICE_ACCESS_ENTRY;

// The records that Java has opened, by list handle and device index. The map owns nothing and has no lock:
// opening, closing and the first look-up of a list handle write to it, and the Java side serialises these
// calls.

using OpenDevices = std::map<int32_t, tagUSB_DEVICE_ACCESS_ENTRY*>;
extern std::map<int32_t, OpenDevices>& g_DevMap;

/// Returns the record opened at (list, index), or null; also null when memory runs out.
/// Deliberate: the look-up of a new list handle inserts an empty inner map, so it is a write.
tagUSB_DEVICE_ACCESS_ENTRY* findOpenDevice(int32_t listHandle, int32_t index);
/// Adds a record, replacing an earlier one at the same index. Throws std::bad_alloc, leaving the index
/// unchanged.
void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry);
/// Removes a record; the inner map of its list stays, even when empty.
void forgetOpenDevice(int32_t listHandle, int32_t index);
