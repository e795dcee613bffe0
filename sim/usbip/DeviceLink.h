// Serves one plugged device over a socket whose other end the kernel's virtual host controller holds.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "UrbMessages.h"

namespace simbus::usbip {

// The kernel sees every transfer answered exactly once: by the answer to the submit, or, when it took the
// transfer back in time, by the answer to the unlink alone. It drops the device at the first answer that it
// does not expect.
class DeviceLink : public std::enable_shared_from_this<DeviceLink> {
 public:
    // Takes the socket (a stream socket) over and closes it in the end.
    DeviceLink(ConnectionId connection, int socket);
    ~DeviceLink();
    DeviceLink(const DeviceLink&) = delete;
    DeviceLink& operator=(const DeviceLink&) = delete;

    // Reads and handles requests on the calling thread until the other end or hangUp() closes the link, or a
    // request makes no sense; then takes back what still waits. Answers are sent from whichever thread
    // completes a transfer.
    void serve();

    // Closes the link towards the kernel, which is the device's unplug there. From any thread.
    void hangUp();

 private:
    struct Urb {
        Transfer transfer;
        Bytes data;
        bool in = false;
        std::uint32_t unlinkedBy = 0;  // number of the request to take it back; 0 when there is none
    };

    bool readRequest(Request& request, Bytes& data);
    bool submit(const Request& request, Bytes data);
    bool noteAsWaiting(std::uint32_t number, const std::shared_ptr<Urb>& urb);
    void unlink(const Request& request);
    void completed(std::uint32_t number);
    void takeBackAll();
    void send(const Header& header, const std::uint8_t* data, std::size_t length);

    const ConnectionId connection_;
    const int socket_;
    // Guards what waits and the sending, so that an unlink finds either a waiting transfer or its answer
    // sent.
    std::mutex mutex_;
    std::map<std::uint32_t, std::shared_ptr<Urb>> waiting_;
    std::size_t waitingBytes_ = 0;  // the memory that they take
};

}  // namespace simbus::usbip
