#include "FakeClock.h"

namespace {

FakeClock* g_fakeClock = nullptr;

}  // namespace

FakeClock::FakeClock() {
    g_fakeClock = this;
}

FakeClock::~FakeClock() {
    g_fakeClock = nullptr;
}

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_gettimeofday(timeval* time, void* zone);
int __real_nanosleep(const timespec* wanted, timespec* left);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    const bool faked = g_fakeClock != nullptr && g_fakeClock->clockGettime;
    return faked ? g_fakeClock->clockGettime(clock, *time) : __real_clock_gettime(clock, time);
}

int __wrap_nanosleep(const timespec* wanted, timespec* left) {
    if (g_fakeClock != nullptr && g_fakeClock->beforeSleep) {
        g_fakeClock->beforeSleep(*wanted);
    }
    return __real_nanosleep(wanted, left);
}

int __wrap_gettimeofday(timeval* time, void* zone) {
    const bool faked = g_fakeClock != nullptr && g_fakeClock->getTimeOfDay;
    return faked ? g_fakeClock->getTimeOfDay(*time) : __real_gettimeofday(time, zone);
}
}
