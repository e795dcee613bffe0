#include "FakeMemory.h"

#include <new>

namespace {

struct Memory {
    std::size_t failingBytes = FailingAllocation::kAnySize;
    int allocationsLeft = 0;  // up to and including the one that fails; 0 for none
    std::size_t countedBytes = 0;
    int deletions = 0;
};
thread_local Memory t_memory;

bool failsNow(std::size_t bytes, bool noThrow) {
    const std::size_t failing = t_memory.failingBytes;
    const bool meant = failing == bytes || failing == FailingAllocation::kAnySize ||
                       (failing == FailingAllocation::kAnyNoThrow && noThrow);
    return meant && t_memory.allocationsLeft > 0 && --t_memory.allocationsLeft == 0;
}

}  // namespace

FailingAllocation::FailingAllocation(std::size_t bytes, int nth) {
    t_memory.failingBytes = bytes;
    t_memory.allocationsLeft = nth;
}

FailingAllocation::~FailingAllocation() {
    t_memory.allocationsLeft = 0;
}

bool FailingAllocation::happened() {
    return t_memory.allocationsLeft == 0;
}

DeletionCount::DeletionCount(std::size_t bytes) {
    t_memory.countedBytes = bytes;
    t_memory.deletions = 0;
}

DeletionCount::~DeletionCount() {
    t_memory.countedBytes = 0;
}

int DeletionCount::count() {
    return t_memory.deletions;
}

// Named as the compiler names the operators, and visible, because the linker needs them for shared libraries
// that use the operators as well.
#pragma GCC visibility push(default)
extern "C" {

void* __real__Znwm(std::size_t bytes);
void* __real__ZnwmRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& noThrow);
void __real__ZdlPvm(void* object, std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);

void* __wrap__Znwm(std::size_t bytes) {
    if (failsNow(bytes, false)) {
        throw std::bad_alloc();
    }
    return __real__Znwm(bytes);
}

void* __wrap__ZnwmRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& noThrow) {
    if (t_memory.countedBytes == DeletionCount::kNextNoThrow) {
        t_memory.countedBytes = bytes;
    }
    return failsNow(bytes, true) ? nullptr : __real__ZnwmRKSt9nothrow_t(bytes, noThrow);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes) {
    return failsNow(count * bytes, true) ? nullptr : __real_calloc(count, bytes);
}

void __wrap__ZdlPvm(void* object, std::size_t bytes) {
    t_memory.deletions += bytes == t_memory.countedBytes ? 1 : 0;
    __real__ZdlPvm(object, bytes);
}
}
#pragma GCC visibility pop
