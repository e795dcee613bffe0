#pragma once

#include <jni.h>

#include <new>

#include "ground/ResultCodes.h"

/// The frame of every native method: answers what `body()` answers. No C++ exception may pass into the
/// virtual machine, so it ends here: out of memory is -11, and a thread that cannot be made, the one other
/// exception there is, -99.
template <class Body>
jint answer(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (...) {
        return kOtherError;
    }
}
