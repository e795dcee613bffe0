#pragma once

#include <cstddef>
#include <cstdint>

// Memory that runs out on request: the linker redirects the program's own calls of operator new, operator
// delete and calloc (those of the library and the tests, not those inside other libraries) here.

/// The size of a node of a map from endpoint addresses to their records: three links, a colour, key and
/// value.
constexpr std::size_t kMapNodeBytes = 32 + 2 * sizeof(void*);

/// Makes the calling thread's nth allocation of exactly this many bytes from now on fail; later ones succeed
/// again. One object at a time per thread.
class FailingAllocation {
 public:
    static constexpr std::size_t kAnySize = 0;
    /// An allocation of any size that returns null instead of throwing.
    static constexpr std::size_t kAnyNoThrow = SIZE_MAX;

    explicit FailingAllocation(std::size_t bytes, int nth = 1);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// True once the allocation has failed.
    static bool happened();
};

/// Counts the calling thread's deletions of objects of exactly this many bytes. One object at a time per
/// thread.
class DeletionCount {
 public:
    /// The size of the thread's next allocation that returns null instead of throwing.
    static constexpr std::size_t kNextNoThrow = SIZE_MAX;

    explicit DeletionCount(std::size_t bytes);
    ~DeletionCount();
    DeletionCount(const DeletionCount&) = delete;
    DeletionCount& operator=(const DeletionCount&) = delete;

    static int count();
};
