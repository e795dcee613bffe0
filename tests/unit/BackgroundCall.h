#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>

/// A call that may block, on a thread of its own. The destructor waits for it.
class BackgroundCall {
 public:
    explicit BackgroundCall(std::function<int32_t()> call)
        : thread_([this, call = std::move(call)] {
              result_ = call();
              returned_.store(true);
          }) {}
    ~BackgroundCall() { wait(); }
    BackgroundCall(const BackgroundCall&) = delete;
    BackgroundCall& operator=(const BackgroundCall&) = delete;

    bool hasReturned() const { return returned_.load(); }
    /// Waits for the call and returns its result.
    int32_t result() {
        wait();
        return result_;
    }

 private:
    void wait() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    int32_t result_ = 0;
    std::atomic<bool> returned_{false};
    std::thread thread_;  // last: the thread starts at once and uses the two members above
};
