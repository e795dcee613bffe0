#pragma once

#include <sys/time.h>

#include <ctime>
#include <functional>

/// Stands in for the clocks that the library reads for its log stamps, as long as it lives: the linker leads
/// the program's calls of clock_gettime and gettimeofday here. A function that is not set leaves that clock
/// alone. Both return what the call returns, 0 or -1. One at a time, and not beside threads that log.
struct FakeClock {
    FakeClock();
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    std::function<int(clockid_t, timespec&)> clockGettime;
    std::function<int(timeval&)> getTimeOfDay;
};
