#pragma once

struct tagUSB_DEVICE_ACCESS_ENTRY;

/// Writes one record to the debug log as a rule and eleven labelled lines. `entry` must not be null.
void DN_WriteDAE(const tagUSB_DEVICE_ACCESS_ENTRY* entry);
