// Sends messages to a client that may be slow to read them, or not read at all.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

#include "bus/Bus.h"

namespace simbus::usbip {

/// Messages that the socket does not take at once wait for the thread in run(). All functions may be called
/// from any thread.
class SocketWriter {
 public:
    explicit SocketWriter(int socket) : socket_(socket) {}

    /// Sends the whole message after those before it, or nothing if stop() was called. Never waits for the
    /// client.
    void send(Bytes message);

    /// Bytes of messages that the client has not been sent yet.
    std::size_t unsent() const;

    /// Sends what waits, on the calling thread, until stop() is called.
    void run();

    /// Drops what waits. A message of which a part is sent may be cut off: the caller shuts the socket down,
    /// which also ends a wait for the client.
    void stop();

 private:
    const int socket_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Bytes> waiting_;  ///< the first of them is being sent by run()
    std::size_t unsent_ = 0;
    bool stopped_ = false;
};

}  // namespace simbus::usbip
