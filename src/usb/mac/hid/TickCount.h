#pragma once

#include <cstdint>

/// Wall-clock tick for log stamps: milliseconds, 0 to 4,194,303,999; 4,294,967,295 when the clock cannot be
/// read.
/// Deliberate: the seconds are cut to 22 bits, so the tick wraps every 4,194,304 s (about 48.5 days).
unsigned long getTickCount();

/// Wall-clock time in milliseconds, not cut, for the HID waits and time-outs.
int64_t wallClockMs();
