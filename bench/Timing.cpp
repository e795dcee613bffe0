#include "Timing.h"

#include <algorithm>

EachCall::EachCall(benchmark::State& state) : state_(state) {
    nanoseconds_.reserve(1U << 16U);
}

EachCall::~EachCall() {
    if (nanoseconds_.empty()) {
        return;
    }
    std::sort(nanoseconds_.begin(), nanoseconds_.end());
    const auto at = [this](double share) {
        const auto index = static_cast<std::size_t>(share * static_cast<double>(nanoseconds_.size()));
        return nanoseconds_[std::min(index, nanoseconds_.size() - 1)];
    };
    state_.counters["median"] = at(0.5);
    state_.counters["p99"] = at(0.99);
    state_.counters["p99.9"] = at(0.999);
    state_.counters["max"] = nanoseconds_.back();
}

bool EachCall::note(bool worked, std::chrono::duration<double, std::nano> taken) {
    if (!worked) {
        state_.SkipWithError("a call failed");
        return false;
    }
    state_.SetIterationTime(taken.count() / 1e9);
    nanoseconds_.push_back(taken.count());
    return true;
}

int runBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
