// A thread of the bus that never prevents a process from ending.
#pragma once

#include <functional>
#include <future>
#include <thread>

namespace simbus {

class Worker {
 public:
    /// Runs `body` on a thread with all signals blocked, so that signal handlers run on the program's own
    /// threads.
    void start(std::function<void()> body);
    bool running() const { return thread_.joinable(); }
    /// Joins a thread that has been told to stop. A thread that does not end within a second, or that is the
    /// caller itself, is left running.
    void finish();

 private:
    std::thread thread_;
    std::future<void> ended_;
};

}  // namespace simbus
