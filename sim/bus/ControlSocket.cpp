#include "ControlSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace simbus {

namespace {

constexpr std::size_t longestLine = 16U << 20U;  // longer ones are not of this protocol

void prepare(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(fd, F_SETFL, O_NONBLOCK);
#ifdef SO_NOSIGPIPE
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0;
#endif

// Removes a socket that nobody answers on. Returns false, with errno set, when the path is taken.
bool makeRoom(const sockaddr_un& address) {
    struct stat found {};
    if (lstat(address.sun_path, &found) != 0) {
        return true;
    }
    if (!S_ISSOCK(found.st_mode)) {
        errno = EEXIST;
        return false;
    }
    const int probe = socket(AF_UNIX, SOCK_STREAM, 0);
    prepare(probe);
    const bool left = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
                      errno == ECONNREFUSED;
    ::close(probe);
    errno = EADDRINUSE;
    return left && unlink(address.sun_path) == 0;
}

// Nobody can connect before listen(), so setting the permissions before it is early enough.
bool listenOn(int fd, const sockaddr_un& address) {
    return makeRoom(address) && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           chmod(address.sun_path, S_IRUSR | S_IWUSR) == 0 && listen(fd, 16) == 0;
}

int listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        return -1;
    }
    prepare(fd);
    if (!listenOn(fd, address)) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

bool mustWait() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

bool ControlSocket::open(const std::string& path, Answer answer) {
    listener_ = listenAt(path);
    if (listener_ < 0 || pipe(stop_) != 0) {
        std::fprintf(stderr, "simbus: no control socket at %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    prepare(stop_[0]);
    prepare(stop_[1]);
    path_ = path;
    answer_ = std::move(answer);
    worker_.start([this] { serve(); });
    return true;
}

void ControlSocket::close() {
    if (!worker_.running()) {
        return;
    }
    unlink(path_.c_str());
    const char byte = 0;
    if (::write(stop_[1], &byte, 1) == 1) {
        worker_.finish();
    }
}

void ControlSocket::serve() {
    std::vector<pollfd> polled;
    for (;;) {
        polled.assign({{stop_[0], POLLIN, 0}, {listener_, POLLIN, 0}});
        for (const Client& client : clients_) {
            const int events = (client.ended ? 0 : POLLIN) | (client.out.empty() ? 0 : POLLOUT);
            polled.push_back({client.fd, static_cast<short>(events), 0});
        }
        if (poll(polled.data(), static_cast<nfds_t>(polled.size()), -1) < 0) {
            continue;
        }
        if (polled[0].revents != 0) {
            break;
        }
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            if (polled[i + 2].revents != 0) {
                read(clients_[i]);
                write(clients_[i]);
            }
        }
        if (polled[1].revents != 0) {
            accept();
        }
        const auto gone = std::partition(clients_.begin(), clients_.end(), [](const Client& client) {
            return !client.broken && !(client.ended && client.out.empty());
        });
        std::for_each(gone, clients_.end(), [](const Client& client) { ::close(client.fd); });
        clients_.erase(gone, clients_.end());
    }
    for (const Client& client : clients_) {
        ::close(client.fd);
    }
    ::close(listener_);
}

void ControlSocket::accept() {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd >= 0) {
        prepare(fd);
        clients_.push_back({fd, {}, {}});
    }
}

void ControlSocket::read(Client& client) {
    char buffer[4096];
    const ssize_t got = client.ended ? 0 : recv(client.fd, buffer, sizeof buffer, 0);
    if (got < 0) {
        client.broken = !mustWait();
        return;
    }
    client.ended = client.ended || got == 0;
    client.in.append(buffer, static_cast<std::size_t>(got));
    std::size_t end = 0;
    while ((end = client.in.find('\n')) != std::string::npos) {
        const std::string line = client.in.substr(0, end);
        client.in.erase(0, end + 1);
        client.out += answer_(line) + '\n';
    }
    client.broken = client.in.size() > longestLine;
}

void ControlSocket::write(Client& client) {
    if (client.broken || client.out.empty()) {
        return;
    }
    const ssize_t sent = send(client.fd, client.out.data(), client.out.size(), sendFlags);
    if (sent >= 0) {
        client.out.erase(0, static_cast<std::size_t>(sent));
    } else {
        client.broken = !mustWait();
    }
}

}  // namespace simbus
