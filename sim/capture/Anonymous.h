// Leaves out of a capture what tells whose device it is, and what was transferred, before it goes to somebody
// else.
#pragma once

#include "CaptureFile.h"

namespace simbus::capture {

/// Overwrites the serial number of each device whose device descriptor is in the capture with the digit 0: in
/// its string descriptor, and in all other data where the whole number occurs as text, in ASCII or UTF-16, if
/// it has at least 4 characters.
void blankSerialNumbers(Capture& capture);

/// Leaves out the data of all transfers but those of the standard requests: the packets keep their lengths.
void omitData(Capture& capture);

}  // namespace simbus::capture
