#include "FakeThreads.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<bool> g_noThreads{false};

}  // namespace

NoThreads::NoThreads() {
    g_noThreads = true;
}

NoThreads::~NoThreads() {
    g_noThreads = false;
}

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument) {
    return g_noThreads ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}
}
