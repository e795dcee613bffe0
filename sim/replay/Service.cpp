#include "Service.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace simbus::replay {

namespace {

using Json = nlohmann::json;

Bytes bytesOf(const std::string& hex) {
    constexpr int kBase = 16;
    Bytes bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(at, 2), nullptr, kBase)));
    }
    return bytes;
}

std::string hexOf(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0x0FU];
    }
    return text;
}

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error(path + ": the path of a socket cannot be as long");
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0 || connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    return connection;
}

}  // namespace

Service::Service(const std::string& socket, const RecordedDevice& device)
    : id_(device.id()),
      replayer_(device,
                [id = id_](const std::string& what) {
                    std::cerr << "simbus-replay: " + id + ": " + what + "\n" << std::flush;
                }),
      socket_(connectTo(socket)) {
    send(Json{{"op", "serve"}, {"device", id_}}.dump());
    std::string line;
    if (!readLine(line) || !Json::parse(line).value("ok", false)) {
        close(socket_);
        throw std::runtime_error("the bus refuses the device " + id_ + ": " + line);
    }
    thread_ = std::thread([this] { serve(); });
}

Service::~Service() {
    stop();
    close(socket_);
}

void Service::stop() {
    shutdown(socket_, SHUT_RDWR);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Service::serve() {
    for (std::string line; readLine(line);) {
        take(line);
    }
}

/// Events; the bus's responses to what is sent say nothing new.
void Service::take(const std::string& line) {
    const Json event = Json::parse(line);
    const std::string what = event.value("event", "");
    const auto request = event.value("request", std::uint64_t{0});
    const auto endpoint = event.value("address", std::uint8_t{0});
    std::vector<Answer> answers;
    if (what == "control") {
        const Bytes bytes = bytesOf(event.at("setup"));
        SetupBytes setup{};
        std::copy_n(bytes.begin(), std::min(bytes.size(), setup.size()), setup.begin());
        answers = replayer_.control(request, setup, bytesOf(event.value("data", "")));
    } else if (what == "out") {
        answers = replayer_.out(request, endpoint, bytesOf(event.value("data", "")));
    } else if (what == "in") {
        answers = replayer_.in(request, endpoint);
    } else if (what == "cancelled") {
        replayer_.cancelled(request);
    } else if (what == "dismissed") {
        std::cerr << "simbus-replay: " + id_ + ": " + event.value("error", "") + "\n" << std::flush;
    }
    for (const Answer& answer : answers) {
        give(answer);
    }
}

void Service::give(const Answer& answer) {
    Json reply = {{"op", "reply"}, {"request", answer.request}};
    switch (answer.end) {
        case Exchange::End::completed:
            if (!answer.data.empty()) {
                reply["data"] = hexOf(answer.data);
            }
            break;
        case Exchange::End::stall:
            reply["stall"] = true;
            break;
        case Exchange::End::silent:
            reply["silent"] = true;
            break;
        case Exchange::End::gone:
            reply = {{"op", "unplug"}, {"device", id_}};
            break;
    }
    send(reply.dump());
}

void Service::send(const std::string& line) const {
    const std::string whole = line + "\n";
    for (std::size_t at = 0; at < whole.size();) {
        const ssize_t sent = ::send(socket_, whole.data() + at, whole.size() - at, MSG_NOSIGNAL);
        if (sent <= 0) {
            return;  // the bus has ended, which the next read says
        }
        at += static_cast<std::size_t>(sent);
    }
}

bool Service::readLine(std::string& line) {
    for (;;) {
        if (const std::size_t end = unread_.find('\n'); end != std::string::npos) {
            line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return true;
        }
        char more[65536];
        const ssize_t count = recv(socket_, more, sizeof more, 0);
        if (count <= 0) {
            return false;
        }
        unread_.append(more, static_cast<std::size_t>(count));
    }
}

}  // namespace simbus::replay
