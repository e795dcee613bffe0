#pragma once

struct tagUSB_DEVICE_ACCESS_ENTRY;

/// Writes a record to the debug log: a separator and eleven labelled lines. `entry` must not be null.
void DN_WriteDAE(const tagUSB_DEVICE_ACCESS_ENTRY* entry);
