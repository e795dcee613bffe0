// A client of the bus's control socket that is also told of events.
#pragma once

#include <algorithm>

#include "SimTest.h"
#include "SocketClient.h"

namespace simtest {

inline const std::string& socketPath() {
    static const std::string path = testing::TempDir() + "simbus-shared-" + std::to_string(getpid());
    return path;
}

// Uses the devices of a bus.
class Host {
 public:
    explicit Host(const std::string& path = socketPath()) : client_(path) {}

    Json ask(const Json& request) {
        client_.send(request.dump() + "\n");
        return next([](const Json& message) { return !message.contains("event"); });
    }
    Json event(const std::string& name) {
        return next([&](const Json& message) { return message.value("event", "") == name; });
    }

    Json nextEvent() {
        return next([](const Json& message) { return message.contains("event"); });
    }
    void send(const std::string& text) { client_.send(text); }

    Json submit(simbus::ConnectionId connection, int number, const Json& rest) {
        Json request = {{"op", "submit"}, {"connection", connection}, {"transfer", number}};
        request.update(rest);
        return ask(request);
    }

 private:
    // The first message of that kind; those before it are kept.
    Json next(const std::function<bool(const Json&)>& isWanted) {
        for (;;) {
            const auto found = std::find_if(heard_.begin(), heard_.end(), isWanted);
            if (found != heard_.end()) {
                Json message = std::move(*found);
                heard_.erase(found);
                return message;
            }
            const std::string line = client_.line();
            if (line.empty()) {
                ADD_FAILURE() << "the bus has hung up, or says nothing";
                return {};
            }
            heard_.push_back(Json::parse(line));
        }
    }

    std::vector<Json> heard_;
    SocketClient client_;
};

}  // namespace simtest
