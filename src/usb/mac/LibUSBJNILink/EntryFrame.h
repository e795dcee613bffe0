#pragma once

#include <jni.h>

#include <new>

#include "ground/ResultCodes.h"

/// The frame of every native method: returns what `body()` returns. No C++ exception may pass into the
/// virtual machine: std::bad_alloc becomes -11, any other (a thread that cannot be created) -99.
/// Inlined, because a transfer through a frame of its own takes 48 instructions more.
template <class Body>
[[gnu::always_inline]] inline jint answer(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (...) {
        return kOtherError;
    }
}
