#pragma once

#include <cstdint>

struct libusb_context;

// The session behind usbInitialize and usbRelease. Callers serialise both with all other calls, except that
// transfers may be waiting during a release.

/// Creates a libusb context in `*context` and starts the hotplug thread. Returns 0, libusb's code (-1 to
/// -99), or -200 when `context` is null. Throws std::system_error when the thread cannot be created,
/// std::bad_alloc when memory runs out; the context has then ended again.
/// Deliberate: the thread also starts when libusb fails, and idles until the next successful call.
int32_t LibUSB_Initialize(libusb_context** context);

/// Ends the hotplug watches and the hotplug thread, cuts off the records of the session's lists, and ends the
/// context. Returns 0, or -101 when `*context` is null. Does not end a context a second time.
/// Deliberate: `*context` keeps its stale value.
int32_t LibUSB_Release(libusb_context** context);

/// The library's version, 3.47, times 100: 347.
int32_t LibUSB_GetLibVersion();

/// Always null: libusb is linked, so there is no loaded copy to return.
void* LibUSB_get_libusb();
/// Does nothing.
void LibUSB_free_libusb();
