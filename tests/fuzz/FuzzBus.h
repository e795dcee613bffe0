#pragma once

#include <initializer_list>
#include <string>

#include "FakeConfiguration.h"
#include "bus/Bus.h"
#include "ground/DeviceRecords.h"

/// A session of the library with these devices on the simulated bus, for one input. At its end the process is
/// in the same state as before; fails if the drop-in libusb reported violations.
class FuzzSession {
 public:
    /// `claimedLength` is the length that libusb reports for every configuration.
    FuzzSession(std::initializer_list<std::string> devices, uint16_t claimedLength);
    ~FuzzSession();
    FuzzSession(const FuzzSession&) = delete;
    FuzzSession& operator=(const FuzzSession&) = delete;

    simbus::Bus& bus = simbus::Bus::instance();
    libusb_context* context = nullptr;

 private:
    // The library does not free parsed configurations; a fake one does not accumulate.
    FakeConfiguration configuration_;
};

/// Puts exactly these devices on the bus.
void plugDevices(std::initializer_list<std::string> devices);
/// Frees the chain of lists, which are all empty and of ended sessions, and restarts handles at 0.
void forgetLists();
/// Fails if the drop-in libusb has reported violations.
void requireNoViolations();
