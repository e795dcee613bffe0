// A program that answers for a device of this process, as a client of the control socket.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "../sim/SocketClient.h"
#include "bus/Bus.h"

namespace usbiptest {

class ProgramClient {
 public:
    explicit ProgramClient(const std::string& device) : client_(socketPath()) {
        ask(R"({"op":"serve","device":")" + device + R"("})");
    }

    // Waits for that event; those before it are dropped.
    std::string event(const std::string& name) { return lineWith(R"("event":")" + name + '"'); }

    // Answers a request with these members.
    void reply(const std::string& event, const std::string& answer) {
        const std::string key = R"("request":)";
        const std::size_t number = event.find(key) + key.size();
        const std::string request =
            event.substr(number, event.find_first_not_of("0123456789", number) - number);
        ask(R"({"op":"reply","request":)" + request + "," + answer + "}");
    }

 private:
    static const std::string& socketPath() {
        static const std::string path = testing::TempDir() + "simbus-usbip-" + std::to_string(getpid());
        static const bool isOpen = simbus::Bus::instance().openControlSocket(path);
        EXPECT_TRUE(isOpen);
        return path;
    }

    void ask(const std::string& request) {
        client_.send(request + "\n");
        EXPECT_NE(lineWith(R"("ok":)").find(R"("ok":true)"), std::string::npos) << request;
    }

    std::string lineWith(const std::string& text) {
        std::string line;
        do {
            line = client_.line();
        } while (!line.empty() && line.find(text) == std::string::npos);
        EXPECT_FALSE(line.empty()) << text;
        return line;
    }

    simtest::SocketClient client_;
};

}  // namespace usbiptest
