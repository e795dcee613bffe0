#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>

/// Replaces, for its lifetime, the clocks that the library reads for its log stamps, and observes its sleeps:
/// the linker redirects the program's calls of clock_gettime, gettimeofday and nanosleep here. A function
/// that is not set leaves its call unchanged. The clock functions return the result of the call, 0 or -1. One
/// object at a time, created before and destroyed after the threads that log or sleep.
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

/// A clock that advances by a millisecond with each reading, so a read times out by reading it.
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

/// The same; at the 300th look somebody sets it back by 200 ms.
struct ClockSetBack : LookingClock {
    ClockSetBack() {
        clock.getTimeOfDay = [this, look = clock.getTimeOfDay](timeval& time) {
            if (++looks == 300) {
                milliseconds -= 200;
            }
            return look(time);
        };
    }
    int looks = 0;
};
