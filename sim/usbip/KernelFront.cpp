#include "KernelFront.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "VhciPort.h"

namespace simbus::usbip {

KernelFront::KernelFront() {
    Bus& bus = Bus::instance();
    bus.setFront(Bus::Front::kernel);
    bus.subscribe([this](const DeviceInfoPtr& device, bool arrived) {
        try {
            arrived ? attach(*device) : detach(device->connection);
        } catch (const std::exception& problem) {
            std::cerr << device->id << ": " << problem.what() << std::endl;
        }
    });
    for (const DeviceInfoPtr& device : bus.devices()) {
        waitForEmptyPort(device->speed);
        attach(*device);
    }
    waitUntilAllAreConfigured();
}

void KernelFront::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    for (const auto& [connection, attached] : attached_) {
        attached.link->hangUp();
    }
    for (const auto& [connection, attached] : attached_) {
        waitUntilFree(attached.port);
    }
    attached_.clear();
}

void KernelFront::attach(const DeviceInfo& device) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || attached_.count(device.connection) != 0) {
        return;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    auto link = std::make_shared<DeviceLink>(device.connection, ends[0]);
    const std::unique_ptr<int, void (*)(int*)> kernelEnd(&ends[1], [](int* end) { ::close(*end); });
    const int port = attachToFreePort(*kernelEnd, device.speed, device.connection);
    attached_[device.connection] = {device.id, port, link};
    std::thread([link] { link->serve(); }).detach();
}

/// Holds no lock while it waits: no device could answer the kernel while a plug waits for the lock.
void KernelFront::waitUntilAllAreConfigured() {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::map<ConnectionId, Attached> all = attached_;
    lock.unlock();
    for (const auto& [connection, attached] : all) {
        if (!waitUntilConfigured(attached.port)) {
            std::cerr << attached.id << ": the kernel has not configured it" << std::endl;
        }
    }
}

void KernelFront::detach(ConnectionId connection) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = attached_.find(connection);
    if (found == attached_.end()) {
        return;
    }
    const Attached gone = std::move(found->second);
    attached_.erase(found);
    gone.link->hangUp();
    if (!waitUntilFree(gone.port)) {
        throw std::runtime_error("the kernel still holds port " + std::to_string(gone.port));
    }
}

}  // namespace simbus::usbip
