#pragma once

#include <condition_variable>
#include <mutex>

/// Blocks threads until it is opened; from then on lets all pass.
class Gate {
 public:
    ~Gate() { open(); }

    /// Called by the thread that is to be blocked.
    void pass() {
        std::unique_lock<std::mutex> lock(mutex_);
        ++arrivals_;
        opened_.wait(lock, [this] { return open_; });
    }
    void open() {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    /// The number of threads that have reached the gate.
    int arrivals() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return arrivals_;
    }

 private:
    mutable std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
    int arrivals_ = 0;
};
