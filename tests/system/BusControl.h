// A client of the simulated bus's control socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

class BusControl {
 public:
    // Connects to the socket that SIMBUS_SOCKET names.
    BusControl() : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        const char* path = std::getenv("SIMBUS_SOCKET");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path == nullptr ? "" : path, sizeof address.sun_path - 1);
        if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("no control socket: SIMBUS_SOCKET");
        }
    }
    ~BusControl() { close(socket_); }
    BusControl(const BusControl&) = delete;
    BusControl& operator=(const BusControl&) = delete;

    // Sends one request and returns the answer. Throws when the bus refuses it.
    nlohmann::json operator()(const nlohmann::json& request) {
        const std::string line = request.dump() + "\n";
        if (send(socket_, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
            throw std::runtime_error("the control socket is gone");
        }
        nlohmann::json answer = nlohmann::json::parse(readLine());
        if (!answer.at("ok").get<bool>()) {
            throw std::runtime_error(line + answer.dump());
        }
        return answer;
    }

 private:
    std::string readLine() {
        std::string line;
        for (char c = 0; recv(socket_, &c, 1, 0) == 1 && c != '\n';) {
            line += c;
        }
        return line;
    }

    int socket_;
};
