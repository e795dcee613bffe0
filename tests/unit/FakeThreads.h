#pragma once

#include <atomic>

/// For its lifetime the library cannot create a thread: the linker redirects its calls of pthread_create
/// here.
struct NoThreads {
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

/// Counts, for its lifetime, the library's threads that are joined and those that are detached: each must be
/// one or the other, or it leaks. The linker redirects the program's calls here. One object at a time.
struct ThreadEnds {
    ThreadEnds();
    ~ThreadEnds();
    ThreadEnds(const ThreadEnds&) = delete;
    ThreadEnds& operator=(const ThreadEnds&) = delete;

    std::atomic<int> joined{0};
    std::atomic<int> detached{0};
};
