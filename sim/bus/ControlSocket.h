// The control socket: line-based, any number of clients, served by one thread.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Worker.h"

namespace simbus {

class ControlSocket {
 public:
    using Answer = std::function<std::string(const std::string& line)>;

    // Creates the socket, accessible to this user alone, and serves it. Replaces an existing socket at the
    // path if nobody answers on it, and nothing else. On failure returns false and writes a message to
    // standard error.
    bool open(const std::string& path, Answer answer);
    bool isOpen() const { return worker_.running(); }
    // Stops the thread and removes the file.
    void close();

 private:
    struct Client {
        int fd;
        std::string in;
        std::string out;
        bool ended = false;  // the client has ended its side
        bool broken = false;
    };
    void serve();
    void accept();
    void read(Client& client);
    void write(Client& client);

    std::string path_;
    Answer answer_;
    int listener_ = -1;
    int stop_[2] = {-1, -1};  // a pipe; a byte in it stops serve()
    std::vector<Client> clients_;
    Worker worker_;
};

}  // namespace simbus
