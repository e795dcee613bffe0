#pragma once

#include <cstdint>

/// Wall-clock tick for log stamps: milliseconds, 0 to 4,194,303,999. Wraps every 4,194,304 s (about 48.5
/// days), because the seconds are cut to 22 bits first, on purpose. 4,294,967,295 when the clock cannot be
/// read.
unsigned long getTickCount();

/// Wall-clock milliseconds, not cut: the time that the HID waits and time-outs count in.
int64_t wallClockMs();
