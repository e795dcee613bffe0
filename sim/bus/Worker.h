// A thread of the bus that must never keep a process from ending.
#pragma once

#include <functional>
#include <future>
#include <thread>

namespace simbus {

class Worker {
 public:
    // Runs `body` on a thread with all signals blocked, so that the program's handlers run on the program's
    // threads.
    void start(std::function<void()> body);
    bool running() const { return thread_.joinable(); }
    // Joins a thread that has been told to stop. One that does not come to its end within a second, or that
    // is the caller itself, is left behind.
    void finish();

 private:
    std::thread thread_;
    std::future<void> ended_;
};

}  // namespace simbus
