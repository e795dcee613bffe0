#pragma once

#include <cstddef>
#include <cstdint>

// Memory that runs out when a test wants it to: the linker leads the program's own calls of operator new and
// delete and of calloc (the library's and the tests', not those inside other libraries) here on their way.

/// A node of a map from endpoint addresses to their records: three links, a colour, key and value.
constexpr std::size_t kMapNodeBytes = 32 + 2 * sizeof(void*);

/// The calling thread's nth allocation of exactly this many bytes from now on fails, and those after it
/// succeed again. One at a time on a thread.
class FailingAllocation {
 public:
    static constexpr std::size_t kAnySize = 0;
    /// Whatever its size, but one that asks for null instead of an exception.
    static constexpr std::size_t kAnyNoThrow = SIZE_MAX;

    explicit FailingAllocation(std::size_t bytes, int nth = 1);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// True once the allocation has failed.
    static bool happened();
};

/// Counts the calling thread's deletions of objects of exactly this many bytes. One at a time on a thread.
class DeletionCount {
 public:
    /// As many as the thread's next allocation has that asks for null instead of an exception.
    static constexpr std::size_t kNextNoThrow = SIZE_MAX;

    explicit DeletionCount(std::size_t bytes);
    ~DeletionCount();
    DeletionCount(const DeletionCount&) = delete;
    DeletionCount& operator=(const DeletionCount&) = delete;

    static int count();
};
