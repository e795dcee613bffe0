#pragma once

#include <cstdint>

struct libusb_context;

// The session behind usbInitialize and usbRelease. One thread calls both, and not while other calls run.

/// Makes a libusb context in `*context` and starts the hotplug thread. Returns 0, libusb's code (-1 to -99),
/// or -200 when `context` is null. Throws std::system_error when the thread cannot be
/// made, std::bad_alloc when there is no memory for it; the context has ended then.
int32_t LibUSB_Initialize(libusb_context** context);

/// Ends the hotplug watches, the hotplug thread and the context, after cutting off the records of the
/// session's lists from it. `*context` keeps its stale value. Returns 0, or -101 when `*context` is null. A
/// context that has ended before is not ended again.
int32_t LibUSB_Release(libusb_context** context);

/// The library's version, 3.47, times 100: 347.
int32_t LibUSB_GetLibVersion();

/// Always null: libusb is linked, there is no loaded copy to hand out.
void* LibUSB_get_libusb();
/// Does nothing.
void LibUSB_free_libusb();
