// Serves one plugged device over a socket whose other end is held by the kernel's virtual host controller.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "SocketWriter.h"
#include "UrbMessages.h"

namespace simbus::usbip {

/// Every transfer is answered to the kernel exactly once: by the answer to its submit, or, if the kernel
/// unlinks it in time, only by the answer to the unlink. The kernel drops the device at the first unexpected
/// answer.
class DeviceLink : public std::enable_shared_from_this<DeviceLink> {
 public:
    /// Takes ownership of the socket (a stream socket) and closes it at the end.
    DeviceLink(ConnectionId connection, int socket);
    ~DeviceLink();
    DeviceLink(const DeviceLink&) = delete;
    DeviceLink& operator=(const DeviceLink&) = delete;

    /// Reads and handles requests on the calling thread until the other end or hangUp() closes the link, or a
    /// request is invalid; then cancels the waiting transfers. Answers never make the bus wait: those that
    /// the other end is slow to read are kept, and it is hung up on when they are more than any kernel lets
    /// wait.
    void serve();

    /// Closes the link to the kernel, which sees an unplug. Callable from any thread.
    void hangUp();

 private:
    struct Urb {
        Transfer transfer;
        Bytes data;
        bool in = false;
        std::uint32_t unlinkedBy = 0;  ///< number of the unlink request; 0 for none
    };

    void serveRequests();
    bool readRequest(Request& request, Bytes& data);
    bool submit(const Request& request, Bytes data);
    bool noteAsWaiting(std::uint32_t number, const std::shared_ptr<Urb>& urb);
    bool unlink(const Request& request);
    bool hasRoomFor(std::size_t bytes) const;
    void completed(std::uint32_t number);
    void takeBackAll();
    void send(const Header& header, const std::uint8_t* data, std::size_t length);

    const ConnectionId connection_;
    const int socket_;
    /// Guards the waiting transfers and the sending, so that an unlink finds its transfer either waiting or
    /// already answered.
    std::mutex mutex_;
    std::map<std::uint32_t, std::shared_ptr<Urb>> waiting_;
    std::size_t waitingBytes_ = 0;  ///< the memory that they use
    SocketWriter writer_;
};

}  // namespace simbus::usbip
