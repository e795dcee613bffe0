// Shows every device that is plugged into the bus to the Linux kernel.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "DeviceLink.h"

namespace simbus::usbip {

// A plug on the bus attaches the device to the kernel, and an unplug detaches it and returns when the kernel
// has let go. What goes wrong later than in the constructor is told on standard error. Must live as long as
// the process, for the bus may tell it of devices until the end.
class KernelFront {
 public:
    // Attaches what is plugged in already and waits until the kernel has configured it; a device that the
    // kernel does not configure is told on standard error. Throws std::runtime_error when the kernel takes no
    // devices.
    KernelFront();
    KernelFront(const KernelFront&) = delete;
    KernelFront& operator=(const KernelFront&) = delete;

    // Detaches everything and attaches nothing any more.
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
