#include "FakeThreads.h"

#include <pthread.h>

#include <cerrno>

namespace {

std::atomic<bool> g_noThreads{false};
std::atomic<ThreadEnds*> g_ends{nullptr};

}  // namespace

NoThreads::NoThreads() {
    g_noThreads = true;
}

NoThreads::~NoThreads() {
    g_noThreads = false;
}

ThreadEnds::ThreadEnds() {
    g_ends = this;
}

ThreadEnds::~ThreadEnds() {
    g_ends = nullptr;
}

extern "C" {

int __real_pthread_join(pthread_t thread, void** result);
int __real_pthread_detach(pthread_t thread);

int __wrap_pthread_join(pthread_t thread, void** result) {
    if (ThreadEnds* ends = g_ends) {
        ++ends->joined;
    }
    return __real_pthread_join(thread, result);
}

int __wrap_pthread_detach(pthread_t thread) {
    if (ThreadEnds* ends = g_ends) {
        ++ends->detached;
    }
    return __real_pthread_detach(thread);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument) {
    return g_noThreads ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}
}
