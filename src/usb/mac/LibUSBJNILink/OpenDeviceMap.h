#pragma once

#include <cstdint>
#include <map>

struct tagUSB_DEVICE_ACCESS_ENTRY;

// The records that Java has opened, by list handle and device index. The map owns nothing. It has no lock:
// calls that open, close or look up a list handle for the first time are writes, and the Java side serialises
// them.

using OpenDevices = std::map<int32_t, tagUSB_DEVICE_ACCESS_ENTRY*>;
extern std::map<int32_t, OpenDevices>& g_DevMap;

/// The record opened at (list, index), or null. A list handle that was never seen gets an empty inner map:
/// meant. Without memory for that the answer is null, too.
tagUSB_DEVICE_ACCESS_ENTRY* findOpenDevice(int32_t listHandle, int32_t index);
/// Enters a record, in the place of an earlier one at the same index. Throws std::bad_alloc; then the index
/// is as it was.
void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry);
/// Forgets a record; its list's inner map stays, even when it is empty now.
void forgetOpenDevice(int32_t listHandle, int32_t index);
