#include "ControlSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "LocalSocket.h"

namespace simbus {

namespace {

constexpr std::size_t kLongestLine = 160U << 20U;  // longer ones are not of this protocol
constexpr std::size_t kMostUnsent = 2 * kLongestLine;
constexpr std::size_t kBytesAtOnce = 64U << 10U;
constexpr char kStop = 's';
constexpr char kSend = 'w';

void prepare(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(fd, F_SETFL, O_NONBLOCK);
}

/// Removes a socket that nobody answers on. Returns false, with errno set, when the path is taken.
bool makeRoom(const sockaddr_un& address) {
    struct stat found {};
    if (lstat(address.sun_path, &found) != 0) {
        return true;
    }
    if (!S_ISSOCK(found.st_mode)) {
        errno = EEXIST;
        return false;
    }
    const int probe = newLocalSocket();
    const bool left = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
                      errno == ECONNREFUSED;
    ::close(probe);
    errno = EADDRINUSE;
    return left && unlink(address.sun_path) == 0;
}

/// Nobody can connect before listen(), so setting the permissions before it is early enough.
bool listenOn(int fd, const sockaddr_un& address) {
    return makeRoom(address) && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           chmod(address.sun_path, S_IRUSR | S_IWUSR) == 0 && listen(fd, 16) == 0;
}

int listenAt(const std::string& path) {
    sockaddr_un address;
    const int fd = setPath(address, path) ? newLocalSocket() : -1;
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

void ControlSocket::Outbox::add(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (tooMuch_) {
        return;
    }
    const bool sleeps = text_.empty();
    text_.append(line).push_back('\n');
    tooMuch_ = text_.size() > kMostUnsent;
    // When the pipe is full, serve() is awake.
    if ((sleeps || tooMuch_) && ::write(wakePipe_, &kSend, 1) != 1 && !mustWait()) {
        std::perror("simbus: control socket");
    }
}

bool ControlSocket::Outbox::empty() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return text_.empty();
}

bool ControlSocket::Outbox::sendTo(int fd) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (tooMuch_ || text_.empty()) {
        return !tooMuch_;
    }
    const ssize_t sent = send(fd, text_.data(), text_.size(), kSendFlags);
    if (sent < 0) {
        return mustWait();
    }
    text_.erase(0, static_cast<std::size_t>(sent));
    return true;
}

bool ControlSocket::open(const std::string& path, Greet greet) {
    listener_ = listenAt(path);
    if (listener_ < 0 || pipe(wake_) != 0) {
        std::fprintf(stderr, "simbus: no control socket at %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    prepare(wake_[0]);
    prepare(wake_[1]);
    path_ = path;
    greet_ = std::move(greet);
    worker_.start([this] { serve(); });
    return true;
}

void ControlSocket::close() {
    if (!worker_.running()) {
        return;
    }
    unlink(path_.c_str());
    if (::write(wake_[1], &kStop, 1) == 1) {
        worker_.finish();
    }
}

void ControlSocket::serve() {
    std::vector<pollfd> polled;
    for (;;) {
        polled.assign({{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}});
        for (const Client& client : clients_) {
            const int events = (client.ended ? 0 : POLLIN) | (client.out->empty() ? 0 : POLLOUT);
            polled.push_back({client.fd, static_cast<short>(events), 0});
        }
        if (poll(polled.data(), static_cast<nfds_t>(polled.size()), -1) < 0) {
            continue;
        }
        if (polled[0].revents != 0 && readWakePipe()) {
            break;
        }
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            if (polled[i + 2].revents != 0) {
                read(clients_[i]);
            }
        }
        for (Client& client : clients_) {
            client.broken = client.broken || !client.out->sendTo(client.fd);
        }
        if (polled[1].revents != 0) {
            accept();
        }
        removeClientsThatLeft();
    }
    for (const Client& client : clients_) {
        ::close(client.fd);
    }
    clients_.clear();
    ::close(listener_);
}

/// Returns true when serve() has to end.
bool ControlSocket::readWakePipe() const {
    char bytes[64];
    const ssize_t got = ::read(wake_[0], bytes, sizeof bytes);
    return got > 0 && std::find(bytes, bytes + got, kStop) != bytes + got;
}

void ControlSocket::removeClientsThatLeft() {
    const auto gone = std::partition(clients_.begin(), clients_.end(), [](const Client& client) {
        return !client.broken && !(client.ended && client.out->empty());
    });
    std::for_each(gone, clients_.end(), [](const Client& client) { ::close(client.fd); });
    clients_.erase(gone, clients_.end());
}

void ControlSocket::accept() {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd >= 0) {
        prepare(fd);
        const auto out = std::make_shared<Outbox>(wake_[1]);
        clients_.push_back({fd, out, greet_([out](const std::string& line) { out->add(line); }), {}});
    }
}

void ControlSocket::read(Client& client) {
    char buffer[kBytesAtOnce];
    const ssize_t got = client.ended ? 0 : recv(client.fd, buffer, sizeof buffer, 0);
    if (got < 0) {
        client.broken = !mustWait();
        return;
    }
    client.ended = client.ended || got == 0;
    std::size_t searched = client.in.size();  // up to there is no end of a line
    client.in.append(buffer, static_cast<std::size_t>(got));
    std::size_t start = 0;
    for (std::size_t end = 0; (end = client.in.find('\n', searched)) != std::string::npos;) {
        client.out->add(client.answer(client.in.substr(start, end - start)));
        start = searched = end + 1;
    }
    client.in.erase(0, start);
    client.broken = client.in.size() > kLongestLine;
}

}  // namespace simbus
