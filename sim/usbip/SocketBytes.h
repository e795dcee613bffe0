// Whole messages over a stream socket.
#pragma once

#include <cstddef>

namespace simbus::usbip {

/// Reads exactly `length` bytes. Returns false when the other end is gone, or silent for longer than the
/// socket's time-out.
bool receiveWhole(int socket, void* bytes, std::size_t length);

/// Deliberate: reports no failure; the other end is gone then, which the next read reports.
void sendWhole(int socket, const void* bytes, std::size_t length);

}  // namespace simbus::usbip
