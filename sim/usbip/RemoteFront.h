// A USB/IP server: lends the devices of the bus to the kernels of other machines.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "DeviceLink.h"

namespace simbus::usbip {

/// A client lists the devices, or imports one until either side closes the connection; then another client
/// may import it. Unplugging a device disconnects its client. The object must live as long as the process,
/// because the bus may call it until the end.
class RemoteFront {
 public:
    RemoteFront();
    RemoteFront(const RemoteFront&) = delete;
    RemoteFront& operator=(const RemoteFront&) = delete;

    /// Serves one client (a stream socket, of which it takes ownership) on the calling thread until the
    /// client leaves. Disconnects a client that sends an invalid message, or nothing for some seconds before
    /// it has a device.
    void serve(int client);

    /// Serves all clients that connect to the port of this machine's loopback address, on threads of their
    /// own. Throws std::system_error when the port is not available.
    /// Deliberate: no other address, because every client that can connect may import the devices.
    void listen(std::uint16_t port);

    /// Disconnects all clients and lends no more devices.
    void close();

 private:
    void lend(int client);
    std::shared_ptr<DeviceLink> lendTo(int client, const DeviceInfoPtr& device);
    void hangUpOn(ConnectionId connection);

    std::mutex mutex_;
    std::map<ConnectionId, std::shared_ptr<DeviceLink>> lent_;
    bool closed_ = false;
};

}  // namespace simbus::usbip
