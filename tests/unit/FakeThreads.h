#pragma once

#include <atomic>

/// As long as it lives, the library cannot start a thread: the linker leads its calls of pthread_create here.
struct NoThreads {
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

/// Counts, as long as it lives, the threads of the library that are joined and those that are detached: each
/// has to be one or the other, or it is never given back. The linker leads the program's calls here. One at a
/// time.
struct ThreadEnds {
    ThreadEnds();
    ~ThreadEnds();
    ThreadEnds(const ThreadEnds&) = delete;
    ThreadEnds& operator=(const ThreadEnds&) = delete;

    std::atomic<int> joined{0};
    std::atomic<int> detached{0};
};
