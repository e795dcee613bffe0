#pragma once

#include <condition_variable>
#include <mutex>

/// Holds threads until it is opened; then lets all through for good.
class Gate {
 public:
    ~Gate() { open(); }

    /// Called by the thread to be held.
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
    /// How many have come to the gate so far.
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
