#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Records, for its lifetime, the arguments of some libusb calls of the library; the linker redirects the
/// program's calls here. Pointers are not recorded. One object at a time.
class CallArguments {
 public:
    using Call = std::vector<int64_t>;

    CallArguments();
    ~CallArguments();
    CallArguments(const CallArguments&) = delete;
    CallArguments& operator=(const CallArguments&) = delete;

    /// The calls so far, oldest first: libusb_control_transfer (request type, request, value, index, length,
    /// time-out), libusb_handle_events_timeout_completed (seconds, microseconds), and the interface of
    /// libusb_claim_interface, libusb_release_interface, libusb_kernel_driver_active and
    /// libusb_attach_kernel_driver.
    static std::vector<Call> of(const std::string& function);
};
