#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

/// Times each call of a benchmark separately and reports the distribution as counters, in nanoseconds:
/// occasional long waits do not show in a mean. Each time includes the overhead of reading the clock.
class EachCall {
 public:
    explicit EachCall(benchmark::State& state);
    ~EachCall();
    EachCall(const EachCall&) = delete;
    EachCall& operator=(const EachCall&) = delete;

    /// One iteration; false if the call failed, which ends the benchmark.
    template <class Call>
    bool time(Call call) {
        const auto start = std::chrono::steady_clock::now();
        const bool worked = call();
        return note(worked, std::chrono::steady_clock::now() - start);
    }

 private:
    bool note(bool worked, std::chrono::duration<double, std::nano> taken);

    benchmark::State& state_;
    std::vector<double> nanoseconds_;
};

/// Runs the registered benchmarks, as Google Benchmark's own main does.
int runBenchmarks(int argc, char** argv);
