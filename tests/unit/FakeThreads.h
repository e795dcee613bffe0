#pragma once

/// As long as it lives, the library cannot start a thread: the linker leads its calls of pthread_create here.
struct NoThreads {
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};
