#include "SocketBytes.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

namespace simbus::usbip {

bool receiveWhole(int socket, void* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t got = recv(socket, bytes, length, MSG_WAITALL);
        if (got <= 0) {
            if (got < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes = static_cast<std::uint8_t*>(bytes) + got;
        length -= static_cast<std::size_t>(got);
    }
    return true;
}

void sendWhole(int socket, const void* bytes, std::size_t length) {
    const auto* next = static_cast<const std::uint8_t*>(bytes);
    while (length > 0) {
        const ssize_t now = send(socket, next, length, MSG_NOSIGNAL);
        if (now < 0 && errno != EINTR) {
            return;
        }
        next += now > 0 ? now : 0;
        length -= now > 0 ? static_cast<std::size_t>(now) : 0;
    }
}

}  // namespace simbus::usbip
