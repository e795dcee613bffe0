#include "hid/TickCount.h"

#include <sys/time.h>

unsigned long getTickCount() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        return 0xFFFFFFFFUL;
    }
    const auto seconds = static_cast<unsigned long>(now.tv_sec) & 0x3FFFFFUL;
    return seconds * 1000UL + static_cast<unsigned long>(now.tv_usec) / 1000UL;
}

int64_t wallClockMs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}
