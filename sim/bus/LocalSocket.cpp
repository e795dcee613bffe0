#include "LocalSocket.h"

#include <fcntl.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/syscall.h>
#endif

#include <cerrno>
#include <cstring>

namespace simbus {

int newLocalSocket() {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd >= 0) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
#ifdef SO_NOSIGPIPE
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    }
    return fd;
}

bool setPath(sockaddr_un& address, const std::string& path) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int connectTo(const std::string& path) {
    sockaddr_un address;
    if (!setPath(address, path)) {
        return -1;
    }
    const int fd = newLocalSocket();
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

void disconnect(int socket) {
#ifdef __linux__
    // The program's libraries may have a function `shutdown` of their own, which would be called.
    syscall(SYS_shutdown, socket, SHUT_RDWR);
#else
    shutdown(socket, SHUT_RDWR);
#endif
}

bool sendAll(int socket, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t now = send(socket, text.data() + sent, text.size() - sent, kSendFlags);
        if (now < 0 && errno != EINTR) {
            return false;
        }
        sent += now > 0 ? static_cast<std::size_t>(now) : 0;
    }
    return true;
}

}  // namespace simbus
