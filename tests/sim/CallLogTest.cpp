// Counts, faults, hooks, violations and tallies.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::ElementsAre;
using testing::Pair;

class CallLogTest : public SimTest {
 protected:
    static std::optional<int> call() {
        static simbus::CallPoint point("test_call");
        return point.enter();
    }
};

TEST_F(CallLogTest, CallsAreCountedByName) {
    call();
    bus.clearCalls();
    EXPECT_THAT(bus.calls(), ElementsAre());
    call();
    call();
    EXPECT_THAT(bus.calls(), ElementsAre(Pair("test_call", 2)));
}

TEST_F(CallLogTest, TheNthCallFails) {
    bus.failCall("test_call", 2, -7);
    EXPECT_EQ(call(), std::nullopt);
    EXPECT_EQ(call(), -7);
    EXPECT_EQ(call(), std::nullopt);
}

TEST_F(CallLogTest, SeveralCallsFailInARow) {
    bus.failCall("test_call", 1, -7, 2);
    EXPECT_EQ(call(), -7);
    EXPECT_EQ(call(), -7);
    EXPECT_EQ(call(), std::nullopt);
}

TEST_F(CallLogTest, TwoFaultsOfOneFunctionCountEachForItself) {
    bus.failCall("test_call", 3, -3);
    bus.failCall("test_call", 1, -1);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(call(), std::nullopt);
    EXPECT_EQ(call(), -3);
}

TEST_F(CallLogTest, FaultsCanBeTakenBack) {
    bus.failCall("test_call", 1, -7);
    bus.clearFaults();
    EXPECT_EQ(call(), std::nullopt);
    EXPECT_THROW(bus.failCall("test_call", 0, -7), std::runtime_error);
}

TEST_F(CallLogTest, AHookRunsOnTheCallersThreadBeforeTheFaultIsLookedUp) {
    std::thread::id ranOn;
    bus.onCall("test_call", [&] {
        ranOn = std::this_thread::get_id();
        bus.failCall("test_call", 1, -9);
    });
    EXPECT_EQ(call(), -9);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(CallLogTest, AHookCanBeTakenAway) {
    int runs = 0;
    bus.onCall("test_call", [&] { ++runs; });
    call();
    bus.onCall("test_call", {});
    call();
    bus.onCall("test_call", [&] { ++runs; });
    bus.clearHooks();
    call();
    EXPECT_EQ(runs, 1);
}

TEST_F(CallLogTest, ViolationsAreKeptInOrderAndBounded) {
    for (int i = 0; i < 1200; ++i) {
        bus.addViolation(std::to_string(i));
    }
    const auto violations = takeViolations();
    EXPECT_EQ(violations.size(), 1000U);
    EXPECT_EQ(violations[999], "999");
    EXPECT_THAT(bus.violations(), ElementsAre());
}

TEST_F(CallLogTest, TalliesAddUp) {
    EXPECT_EQ(bus.tally("test tally"), 0);
    bus.addToTally("test tally", 5);
    bus.addToTally("test tally", -5);
    EXPECT_EQ(bus.tally("test tally"), 0);
    bus.addToTally("test tally", 2);
    EXPECT_EQ(bus.tally("test tally"), 2);
    bus.addToTally("test tally", -2);
}

}  // namespace
}  // namespace simtest
