#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>

/// Stands in for the clocks that the library reads for its log stamps, as long as it lives, and looks at its
/// sleeps: the linker leads the program's calls of clock_gettime, gettimeofday and nanosleep here. A function
/// that is not set leaves that call alone. The clocks return what the call returns, 0 or -1. One at a time,
/// made before and ended after the threads that log or sleep.
struct FakeClock {
    FakeClock();
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    std::function<int(clockid_t, timespec&)> clockGettime;
    std::function<int(timeval&)> getTimeOfDay;
    /// Called before each sleep of a thread of the program, on that thread.
    std::function<void(const timespec&)> beforeSleep;
};

/// A clock that goes on by a millisecond at every look, so that a read's time passes by its own looks.
struct LookingClock {
    LookingClock() {
        clock.getTimeOfDay = [this](timeval& time) {
            const int64_t now = ++milliseconds;
            time.tv_sec = static_cast<time_t>(now / 1000);
            time.tv_usec = static_cast<suseconds_t>(now % 1000 * 1000);
            return 0;
        };
    }
    std::atomic<int64_t> milliseconds{1'000'000};
    FakeClock clock;
};
