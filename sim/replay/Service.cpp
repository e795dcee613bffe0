#include "Service.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "Json.h"
#include "LocalSocket.h"

namespace simbus::replay {

namespace {

int connected(const std::string& path) {
    const int connection = connectTo(path);
    if (connection < 0) {
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
      socket_(connected(socket)) {
    sendAll(socket_, lineOf({{"op", "serve"}, {"device", id_}}) + "\n");
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
    disconnect(socket_);
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
        const Bytes bytes = bytesOf(event, "setup");
        SetupBytes setup{};
        std::copy_n(bytes.begin(), std::min(bytes.size(), setup.size()), setup.begin());
        answers = replayer_.control(request, setup, bytesOf(event, "data"));
    } else if (what == "out") {
        answers = replayer_.out(request, endpoint, bytesOf(event, "data"));
    } else if (what == "in") {
        answers = replayer_.in(request, endpoint, event.value("length", std::size_t{0}));
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
    sendAll(socket_, lineOf(reply) + "\n");
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
