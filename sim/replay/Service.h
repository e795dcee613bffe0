// The programs that answer for recorded devices, over the control socket of the bus.
#pragma once

#include <string>
#include <thread>

#include "Replayer.h"

namespace simbus::replay {

/// Answers for one device, on a thread of its own, until its end.
class Service {
 public:
    /// The device has to be on the bus already, and has to outlive this. Throws std::runtime_error.
    Service(const std::string& socket, const RecordedDevice& device);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// To be called after stop().
    std::size_t replayed() const { return replayer_.replayed(); }
    void stop();

 private:
    void serve();
    void take(const std::string& line);
    void give(const Answer& answer);
    bool readLine(std::string& line);

    const std::string id_;
    Replayer replayer_;
    int socket_ = -1;
    std::string unread_;
    std::thread thread_;
};

}  // namespace simbus::replay
