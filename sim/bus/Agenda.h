// Pending work of the bus, kept apart from the devices that cause it: calls to make with no lock held, in the
// order in which they arose, and the time at which the next delayed transfer is due.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <thread>

#include "Bus.h"

namespace simbus {

inline std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

inline std::int64_t afterMilliseconds(std::uint32_t delayMs) {
    return nowNanoseconds() + std::int64_t{delayMs} * 1'000'000;
}

/// The caller of every function holds the lock of the bus.
class Agenda {
 public:
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    void complete(Transfer& transfer, Status status);
    void tell(DeviceInfoPtr device, bool arrived);
    void call(std::function<void()> other);
    void wakeAt(std::int64_t nanoseconds);
    /// Makes the transfer due after a rule's delay, and returns true; returns false when that was done before
    /// and when there is no delay.
    bool postpone(Transfer& transfer, std::uint32_t delayMs);

    int subscribe(Bus::Subscriber subscriber);
    void unsubscribe(int subscription) { subscribers_.erase(subscription); }

    /// Makes the calls that are due, releasing the lock around each. Does nothing while another thread, or an
    /// outer call on this one, is making them: that one makes the new ones, too.
    void deliver(std::unique_lock<std::mutex>& lock);
    /// deliver(), then waits until everything that was due at entry has been called; does not wait inside
    /// such a call.
    void settle(std::unique_lock<std::mutex>& lock);

    /// The earliest time passed to wakeAt() since the last takeWake().
    std::int64_t nextWake() const { return nextWake_; }
    void takeWake() { nextWake_ = kNever; }
    /// Notified when nextWake() becomes earlier.
    std::condition_variable& wakeChanged() { return wakeChanged_; }

 private:
    struct Call {
        Transfer* transfer = nullptr;  ///< one of these three
        std::function<void()> other;
        DeviceInfoPtr device;
        bool arrived = false;  ///< of the device
    };
    void add(Call call);
    void make(const Call& call, std::unique_lock<std::mutex>& lock);

    std::deque<Call> calls_;
    std::uint64_t added_ = 0;
    std::uint64_t made_ = 0;
    std::thread::id maker_;  ///< the thread that is making the calls
    std::condition_variable madeOne_;
    std::map<int, Bus::Subscriber> subscribers_;
    int nextSubscription_ = 1;
    std::int64_t nextWake_ = kNever;
    std::condition_variable wakeChanged_;
};

}  // namespace simbus
