#pragma once

#include <initializer_list>
#include <string>

#include "FakeConfiguration.h"
#include "bus/Bus.h"
#include "ground/DeviceRecords.h"

/// A session of the library with these devices on the simulated bus, for one input. At its end the process is
/// as it was before; the drop-in libusb must have found nothing wrong in the calls of the library.
class FuzzSession {
 public:
    /// `claimedLength` is what libusb tells of every configuration's length.
    FuzzSession(std::initializer_list<std::string> devices, uint16_t claimedLength);
    ~FuzzSession();
    FuzzSession(const FuzzSession&) = delete;
    FuzzSession& operator=(const FuzzSession&) = delete;

    simbus::Bus& bus = simbus::Bus::instance();
    libusb_context* context = nullptr;

 private:
    // The library does not give parsed configurations back; this way it gets none that would pile up.
    FakeConfiguration configuration_;
};

/// Puts exactly these devices on the bus.
void plugDevices(std::initializer_list<std::string> devices);
/// Frees the chain of lists, all of them empty and of ended sessions, and lets handles start at 0 again.
void forgetLists();
/// The drop-in libusb has found nothing wrong.
void requireNoViolations();
