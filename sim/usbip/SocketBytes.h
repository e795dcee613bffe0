// Whole messages over a stream socket.
#pragma once

#include <cstddef>

namespace simbus::usbip {

// Reads exactly that many bytes. False when the other end is gone, or silent for longer than the socket
// waits.
bool receiveWhole(int socket, void* bytes, std::size_t length);

// A failure is not reported: the other end is gone then, which the next read notices.
void sendWhole(int socket, const void* bytes, std::size_t length);

}  // namespace simbus::usbip
