#include "FakeClock.h"

namespace {

FakeClock* g_fake = nullptr;

}  // namespace

FakeClock::FakeClock() {
    g_fake = this;
}

FakeClock::~FakeClock() {
    g_fake = nullptr;
}

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_gettimeofday(timeval* time, void* zone);
int __real_nanosleep(const timespec* wanted, timespec* left);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    const bool faked = g_fake != nullptr && g_fake->clockGettime;
    return faked ? g_fake->clockGettime(clock, *time) : __real_clock_gettime(clock, time);
}

int __wrap_nanosleep(const timespec* wanted, timespec* left) {
    if (g_fake != nullptr && g_fake->beforeSleep) {
        g_fake->beforeSleep(*wanted);
    }
    return __real_nanosleep(wanted, left);
}

int __wrap_gettimeofday(timeval* time, void* zone) {
    const bool faked = g_fake != nullptr && g_fake->getTimeOfDay;
    return faked ? g_fake->getTimeOfDay(*time) : __real_gettimeofday(time, zone);
}
}
