#include <gtest/gtest.h>

#include "FakeClock.h"
#include "hid/TickCount.h"

namespace {

constexpr long kPeriod = 4'194'304;  // seconds until the tick wraps

unsigned long tickAt(long seconds, long microseconds) {
    FakeClock clock;
    clock.getTimeOfDay = [=](timeval& time) {
        time.tv_sec = seconds;
        time.tv_usec = static_cast<decltype(time.tv_usec)>(microseconds);
        return 0;
    };
    return getTickCount();
}

TEST(TickCount, CountsMilliseconds) {
    EXPECT_EQ(0U, tickAt(0, 0));
    EXPECT_EQ(1'234U, tickAt(1, 234'000));
}

TEST(TickCount, DropsPartsOfAMillisecond) {
    EXPECT_EQ(5U, tickAt(0, 5'999));
}

TEST(TickCount, StartsAgainAtEveryMultipleOfItsPeriod) {
    EXPECT_EQ(4'194'303'999U, tickAt(kPeriod - 1, 999'999));
    EXPECT_EQ(0U, tickAt(kPeriod, 0));
    EXPECT_EQ(1'005U, tickAt(400 * kPeriod + 1, 5'000));
}

TEST(TickCount, AnswersThirtyTwoOnesWhenTheClockCannotBeRead) {
    FakeClock clock;
    clock.getTimeOfDay = [](timeval&) { return -1; };
    EXPECT_EQ(4'294'967'295UL, getTickCount());
}

TEST(TickCount, TheWallClockInMillisecondsKeepsAllItsSeconds) {
    FakeClock clock;
    clock.getTimeOfDay = [](timeval& time) {
        time = {kPeriod + 1, 234'999};
        return 0;
    };
    EXPECT_EQ(4'194'305'234, wallClockMs());
}

TEST(TickCount, IsTakenFromTheWallClock) {
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    const unsigned long tick = getTickCount();
    gettimeofday(&after, nullptr);
    // The difference is taken modulo the period, so a wrap between the readings does not matter.
    const auto since = static_cast<long>(tick) - static_cast<long>(tickAt(before.tv_sec, before.tv_usec));
    const long periodMs = kPeriod * 1000;
    EXPECT_LE((since + periodMs) % periodMs,
              (after.tv_sec - before.tv_sec) * 1000 + (after.tv_usec - before.tv_usec) / 1000 + 1);
}

}  // namespace
