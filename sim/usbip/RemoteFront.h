// Lends the devices of the bus to the kernels of other machines: a server of USB/IP.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "DeviceLink.h"

namespace simbus::usbip {

// A client asks for a list of the devices, or takes one until either side hangs up; then another may take it.
// Unplugging a device hangs up on whoever has it. Must live as long as the process, for the bus may tell it
// of devices until the end.
class RemoteFront {
 public:
    RemoteFront();
    RemoteFront(const RemoteFront&) = delete;
    RemoteFront& operator=(const RemoteFront&) = delete;

    // Serves one client (a stream socket, which it takes over) on the calling thread until it goes. One that
    // speaks nonsense, or keeps silent for some seconds before it has a device, is hung up on.
    void serve(int client);

    // Serves all who come to the port of this machine's loopback address, on threads of their own. Throws
    // std::system_error when it cannot be had. Whoever can connect gets the devices, hence no other address.
    void listen(std::uint16_t port);

    // Hangs up on everybody; nobody gets a device any more.
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
