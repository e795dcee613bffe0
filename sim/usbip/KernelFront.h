// Presents every device on the bus to the Linux kernel.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "DeviceLink.h"

namespace simbus::usbip {

/// A plug on the bus attaches the device to the kernel; an unplug detaches it and returns when the kernel has
/// released it. Failures after the constructor are reported on standard error. The object must live as long
/// as the process, because the bus may call it until the end.
class KernelFront {
 public:
    /// Attaches the devices that are plugged in and waits until the kernel has configured them; one that it
    /// does not configure is reported on standard error. Throws std::runtime_error when the kernel accepts no
    /// devices.
    KernelFront();
    KernelFront(const KernelFront&) = delete;
    KernelFront& operator=(const KernelFront&) = delete;

    /// Detaches all devices and attaches no more.
    void close();

 private:
    struct Attached {
        std::string id;
        int port = 0;
        std::shared_ptr<DeviceLink> link;
    };

    void attach(const DeviceInfo& device);
    void detach(ConnectionId connection);
    void waitUntilAllAreConfigured();

    std::mutex mutex_;
    std::map<ConnectionId, Attached> attached_;
    bool closed_ = false;
};

}  // namespace simbus::usbip
