// Asynchronous transfers of libusb. While one is in flight, its callback is the recorder's, which records the
// end and calls the program's. Each function may be called on any thread.
#pragma once

#include <libusb.h>

#include <cstdint>

namespace simbus::record {

/// Knows the transfer from now on. Those that libusb allocates for itself are not known.
void addFlight(libusb_transfer* transfer);
void removeFlight(libusb_transfer* transfer);
/// Records the submission, and takes the place of the callback. Returns false when the transfer is not known.
bool startFlight(libusb_transfer* transfer);
/// The submission has failed: gives the program its callback back.
void refuseFlight(libusb_transfer* transfer, std::int32_t status);

}  // namespace simbus::record
