#include <gmock/gmock.h>

#include <cstdlib>
#include <thread>

#include "DebugUtil/DebugLog.h"
#include "FakeClock.h"
#include "UsbTest.h"

namespace {

/// The debug log, enabled, before its first line, with clocks that the test controls.
class DebugLog : public ::testing::Test {
 protected:
    void SetUp() override {
        timestamp_origin = {};
        setenv("ORVEXCOMM_DEBUG", "1", 1);
        setWallClock({7, 5'000});
    }
    void TearDown() override { unsetenv("ORVEXCOMM_DEBUG"); }

    /// Readings of the monotonic clock, in order; the last one repeats.
    void setMonotonicClock(const std::vector<timespec>& readings) {
        clock_.clockGettime = [this, readings](clockid_t id, timespec& time) {
            EXPECT_EQ(CLOCK_MONOTONIC, id);
            time = readings[std::min(monotonicReadings_++, readings.size() - 1)];
            return 0;
        };
        monotonicReadings_ = 0;
    }
    void setWallClock(timeval now) {
        clock_.getTimeOfDay = [now](timeval& time) {
            time = now;
            return 0;
        };
    }
    void breakClocks() {
        clock_.clockGettime = [](clockid_t, timespec&) { return -1; };
        clock_.getTimeOfDay = [](timeval&) { return -1; };
    }
    static std::string logged(const char* message) {
        return standardErrorOf([message] { debug_log("%s", message); });
    }

 private:
    FakeClock clock_;
    std::size_t monotonicReadings_ = 0;
};

void callEveryWriter() {
    debug_log("line %d", 1);
    DN_WriteStr("text", 1);
    DN_WriteStrStr("name", "value", 1);
    DN_WriteStrStr("name", nullptr, 1);
    DN_WriteStrUInt("name", 1, 1);
    DN_WriteStrULong("name", 1, 1);
    DN_WriteAddress("name", nullptr, 1);
}

TEST_F(DebugLog, WritesNothingWhileTheVariableIsUnset) {
    unsetenv("ORVEXCOMM_DEBUG");
    EXPECT_FALSE(isDebugEnabled());
    EXPECT_EQ("", standardErrorOf(callEveryWriter));
    EXPECT_EQ(0, timestamp_origin.tv_sec);
    EXPECT_EQ(0, timestamp_origin.tv_nsec);
}

TEST_F(DebugLog, AnEmptyValueSwitchesItOn) {
    setenv("ORVEXCOMM_DEBUG", "", 1);
    EXPECT_TRUE(isDebugEnabled());
    EXPECT_NE("", logged("on"));
    EXPECT_NE(0, timestamp_origin.tv_sec);
}

TEST_F(DebugLog, AnyValueSwitchesItOn) {
    setenv("ORVEXCOMM_DEBUG", "0", 1);
    EXPECT_TRUE(isDebugEnabled());
}

TEST_F(DebugLog, LooksTheVariableUpAtEveryCall) {
    EXPECT_NE("", logged("on"));
    unsetenv("ORVEXCOMM_DEBUG");
    EXPECT_EQ("", logged("off"));
    setenv("ORVEXCOMM_DEBUG", "1", 1);
    EXPECT_NE("", logged("on again"));
}

TEST_F(DebugLog, TheFirstLineShowsZeroElapsedSecondsInAFieldOfTwo) {
    setMonotonicClock({{100, 123'456'789}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.123456] first\n", logged("first"));
    EXPECT_EQ(100, timestamp_origin.tv_sec);
    EXPECT_EQ(123'456'789, timestamp_origin.tv_nsec);
}

TEST_F(DebugLog, LaterLinesCountWholeSecondsFromTheFirst) {
    setMonotonicClock({{100, 1'000}, {100, 1'000}, {102, 2'000}, {12'445, 3'000}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.000001] first\n", logged("first"));
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 2.000002] second\n", logged("second"));
    EXPECT_EQ("[ORVEXCOMM_DBG] [12345.000003] third\n", logged("third"));
    EXPECT_EQ(100, timestamp_origin.tv_sec);
}

TEST_F(DebugLog, TheFractionIsTheClocksOwnAndMayRunBackwards) {
    setMonotonicClock({{100, 999'999'999}, {100, 999'999'999}, {101, 1'999}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.999999] first\n", logged("first"));
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 1.000001] second\n", logged("second"));
}

TEST_F(DebugLog, ReadsTheClockAgainBehindTheOrigin) {
    setMonotonicClock({{100, 999'999'999}, {101, 5'000}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 1.000005] first\n", logged("first"));
}

TEST_F(DebugLog, TakesANewOriginAsLongAsItsSecondsAreZero) {
    setMonotonicClock({{0, 7'000}, {0, 7'000}, {5, 0}, {5, 0}, {6, 0}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.000007] first\n", logged("first"));
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.000000] second\n", logged("second"));
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 1.000000] third\n", logged("third"));
}

TEST_F(DebugLog, AFailingClockDoesNotKeepALineBack) {
    breakClocks();
    EXPECT_THAT(logged("line"), ::testing::EndsWith("] line\n"));
}

TEST_F(DebugLog, FormatsItsArguments) {
    setMonotonicClock({{100, 0}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.000000] a 7 100%\n",
              standardErrorOf([] { debug_log("%s %d 100%%", "a", 7); }));
}

TEST_F(DebugLog, AFormatThatBeginsWithALineFeedLeavesTheStampAlone) {
    setMonotonicClock({{100, 0}});
    EXPECT_EQ("[ORVEXCOMM_DBG] [ 0.000000] \nbelow\n", logged("\nbelow"));
}

TEST_F(DebugLog, LinesOfSeveralThreadsStayWhole) {
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    const std::vector<std::string> lines = debugLinesOf([] {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([] {
                for (int line = 0; line < kLines; ++line) {
                    debug_log("a line");
                    DN_WriteStr("a line", 1);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    EXPECT_EQ(2U * kThreads * kLines, lines.size());
    EXPECT_THAT(lines, ::testing::Each("a line"));
}

TEST_F(DebugLog, WriteStrEndsTheLineOnlyWhenAsked) {
    EXPECT_EQ("[7005] text", standardErrorOf([] { DN_WriteStr("text", 0); }));
    EXPECT_EQ("[7005] text\n", standardErrorOf([] { DN_WriteStr("text", 1); }));
    EXPECT_EQ("[7005] text\n", standardErrorOf([] { DN_WriteStr("text", -3); }));
}

TEST_F(DebugLog, WriteStrTakesItsTextAsItIs) {
    EXPECT_EQ("[7005] 100%s\n", standardErrorOf([] { DN_WriteStr("100%s", 1); }));
}

TEST_F(DebugLog, WriteStrStampsAllOnesWhenTheClockCannotBeRead) {
    breakClocks();
    EXPECT_EQ("[4294967295] text\n", standardErrorOf([] { DN_WriteStr("text", 1); }));
}

TEST_F(DebugLog, WriteStrStrPutsTheValueInQuotes) {
    EXPECT_EQ("[7005] name : 'value'\n", standardErrorOf([] { DN_WriteStrStr("name", "value", 1); }));
    EXPECT_EQ("[7005] name : ''", standardErrorOf([] { DN_WriteStrStr("name", "", 0); }));
}

TEST_F(DebugLog, WriteStrStrShowsANullValue) {
    EXPECT_EQ("[7005] name : <NULL>\n", standardErrorOf([] { DN_WriteStrStr("name", nullptr, 1); }));
    EXPECT_EQ("[7005] name : <NULL>", standardErrorOf([] { DN_WriteStrStr("name", nullptr, 0); }));
}

TEST_F(DebugLog, WriteStrUIntShowsDecimalAndFourHexadecimalDigits) {
    EXPECT_EQ("[7005] name : 10 (0x000A)", standardErrorOf([] { DN_WriteStrUInt("name", 10, 0); }));
    EXPECT_EQ("[7005] name : 4294967295 (0xFFFFFFFF)\n",
              standardErrorOf([] { DN_WriteStrUInt("name", 0xFFFFFFFF, 1); }));
}

TEST_F(DebugLog, WriteStrULongShowsDecimalAndEightHexadecimalDigits) {
    EXPECT_EQ("[7005] name : 10 (0x0000000A)", standardErrorOf([] { DN_WriteStrULong("name", 10, 0); }));
    EXPECT_EQ("[7005] name : 18446744073709551615 (0xFFFFFFFFFFFFFFFF)\n",
              standardErrorOf([] { DN_WriteStrULong("name", ~0UL, 1); }));
}

TEST_F(DebugLog, WriteAddressAlwaysEndsItsLineAndAddsAnEmptyOneWhenAsked) {
    const int object = 0;
    const std::string line = "[7005] name : " + pointerText(&object) + "\n";
    EXPECT_EQ(line, standardErrorOf([&] { DN_WriteAddress("name", &object, 0); }));
    EXPECT_EQ(line + "\n", standardErrorOf([&] { DN_WriteAddress("name", &object, 1); }));
}

TEST_F(DebugLog, LongTextsAreCutToTheirBuffers) {
    const std::string prefix = "[7005] ";
    const std::string longText(3000, 'x');
    const char* text = longText.c_str();
    const auto textOf = [](const std::string& line, std::size_t length) { return line.substr(0, length); };
    EXPECT_EQ(prefix + textOf(longText, 2047), standardErrorOf([text] { DN_WriteStrStr(text, "v", 0); }));
    EXPECT_EQ(prefix + textOf(longText, 2047), standardErrorOf([text] { DN_WriteStrStr(text, nullptr, 0); }));
    EXPECT_EQ(prefix + textOf(longText, 1023), standardErrorOf([text] { DN_WriteStrUInt(text, 1, 0); }));
    EXPECT_EQ(prefix + textOf(longText, 1023), standardErrorOf([text] { DN_WriteStrULong(text, 1, 0); }));
    EXPECT_EQ(prefix + textOf(longText, 1023), standardErrorOf([text] { DN_WriteAddress(text, text, 0); }));
    EXPECT_EQ(prefix + longText + "\n", standardErrorOf([text] { DN_WriteStr(text, 1); }));
}

}  // namespace
