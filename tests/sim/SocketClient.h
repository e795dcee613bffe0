// A client of a control socket, in a test.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <utility>

namespace simtest {

class SocketClient {
 public:
    explicit SocketClient(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        std::signal(SIGPIPE, SIG_IGN);  // sending to a closed socket fails instead
        const timeval patience{30, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~SocketClient() { ::close(fd_); }
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    void send(const std::string& text) {
        EXPECT_EQ(::send(fd_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    void waitUntilDropped() const {
        pollfd ended{fd_, 0, 0};
        EXPECT_EQ(poll(&ended, 1, 30000), 1);
    }
    void endSending() { shutdown(fd_, SHUT_WR); }

    // Reads one line without its end; empty when the other side has closed, or says nothing.
    std::string line() {
        std::size_t end = 0;
        while ((end = got_.find('\n')) == std::string::npos) {
            char buffer[65536];
            const ssize_t count = recv(fd_, buffer, sizeof buffer, 0);
            if (count <= 0) {
                return std::exchange(got_, {});
            }
            got_.append(buffer, static_cast<std::size_t>(count));
        }
        const std::string text = got_.substr(0, end);
        got_.erase(0, end + 1);
        return text;
    }

 private:
    int fd_;
    std::string got_;
};

}  // namespace simtest
