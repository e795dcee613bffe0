// The control socket: line-based, any number of clients, served by one thread. Sending never makes anybody
// wait; a client that does not read is disconnected when too much waits for it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Worker.h"

namespace simbus {

class ControlSocket {
 public:
    using Answer = std::function<std::string(const std::string& line)>;
    /// Sends a line that is not an answer. Callable from any thread and at any time; does nothing when the
    /// client is gone.
    using Tell = std::function<void(const std::string& line)>;
    /// Called for each client, on the thread that then calls the answer; the answer is destroyed when the
    /// client is gone.
    using Greet = std::function<Answer(Tell tell)>;

    /// Creates the socket, accessible to this user alone, and serves it. Replaces an existing socket at the
    /// path if nobody answers on it, and nothing else. On failure returns false and writes a message to
    /// standard error.
    bool open(const std::string& path, Greet greet);
    bool isOpen() const { return worker_.running(); }
    /// Stops the thread and removes the file.
    void close();

 private:
    /// What waits to be sent to one client.
    class Outbox {
     public:
        explicit Outbox(int wakePipe) : wakePipe_(wakePipe) {}
        void add(const std::string& line);
        bool empty() const;
        /// Returns false when the client can be sent nothing any more.
        bool sendTo(int fd);

     private:
        const int wakePipe_;
        mutable std::mutex mutex_;
        std::string text_;
        bool tooMuch_ = false;
    };
    struct Client {
        int fd;
        std::shared_ptr<Outbox> out;
        Answer answer;
        std::string in;
        bool ended = false;  ///< the client has ended its side
        bool broken = false;
    };
    void serve();
    void accept();
    void read(Client& client);
    void removeClientsThatLeft();
    bool readWakePipe() const;

    std::string path_;
    Greet greet_;
    int listener_ = -1;
    int wake_[2] = {
        -1,
        -1};  ///< a pipe that wakes serve(): kStop ends it, other bytes say that there is something to send
    std::vector<Client> clients_;
    Worker worker_;
};

}  // namespace simbus
