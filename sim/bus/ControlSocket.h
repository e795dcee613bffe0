// The control socket: lines in, lines out, any number of clients, one thread.
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

    // Makes the socket, for this user alone, and serves it. One at the path that nobody answers on any more
    // is replaced, nothing else. False, with a text on standard error, when that cannot be done.
    bool open(const std::string& path, Answer answer);
    bool isOpen() const { return worker_.running(); }
    // Stops the thread and removes the file.
    void close();

 private:
    struct Client {
        int fd;
        std::string in;
        std::string out;
        bool ended = false;  // the other side sends no more
        bool broken = false;
    };
    void serve();
    void accept();
    void read(Client& client);
    void write(Client& client);

    std::string path_;
    Answer answer_;
    int listener_ = -1;
    int stop_[2] = {-1, -1};  // a pipe; a byte in it ends serve()
    std::vector<Client> clients_;
    Worker worker_;
};

}  // namespace simbus
