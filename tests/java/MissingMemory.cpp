// Memory that runs out for the USB library alone. Loaded into a virtual machine before everything else, this
// takes the place of operator new and calloc for the whole process; the Java class MissingMemory says which
// of the library's allocations fails. All others get what they ask for.
#include <dlfcn.h>
#include <jni.h>
#include <unwind.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" void* __libc_calloc(std::size_t count, std::size_t bytes);

namespace {

struct Watch {
    bool on = false;
    int counted = 0;
    int failing = 0;  // counted from 1; 0 when none fails
};
thread_local Watch t_watch;

bool isFrom(const Dl_info& object, const char* name) {
    return object.dli_fname != nullptr && std::strstr(object.dli_fname, name) != nullptr;
}

/// Goes up to the first caller outside of this file and of the C++ runtime, which allocates for others.
_Unwind_Reason_Code lookAtCaller(_Unwind_Context* frame, void* ofLibrary) {
    Dl_info object{};
    const auto at = static_cast<std::uintptr_t>(_Unwind_GetIP(frame));
    if (dladdr(reinterpret_cast<void*>(at), &object) == 0) {  // NOLINT(performance-no-int-to-ptr)
        return _URC_END_OF_STACK;
    }
    if (isFrom(object, "/libstdc++") || isFrom(object, "/libmissing_memory")) {
        return _URC_NO_REASON;
    }
    *static_cast<bool*>(ofLibrary) = isFrom(object, "/libUSBAccessLink");
    return _URC_END_OF_STACK;
}

/// Whether the allocation that the calling thread asks for is the one that fails.
bool failsNow() {
    if (!t_watch.on) {
        return false;
    }
    bool ofLibrary = false;
    t_watch.on = false;  // the look itself may need memory
    _Unwind_Backtrace(lookAtCaller, &ofLibrary);
    t_watch.on = true;
    return ofLibrary && ++t_watch.counted == t_watch.failing;
}

}  // namespace

#pragma GCC visibility push(default)

/// All other forms of the operator come by here: the C++ runtime calls it for them.
void* operator new(std::size_t bytes) {
    void* memory = failsNow() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

extern "C" {

void* calloc(std::size_t count, std::size_t bytes) {
    return failsNow() ? nullptr : __libc_calloc(count, bytes);
}

JNIEXPORT void JNICALL Java_com_talvane_orvex_comm_MissingMemory_watch(JNIEnv* /*env*/, jclass /*type*/,
                                                                       jint failing) {
    t_watch = {true, 0, failing};
}

JNIEXPORT jint JNICALL Java_com_talvane_orvex_comm_MissingMemory_endWatch(JNIEnv* /*env*/, jclass /*type*/) {
    t_watch.on = false;
    return t_watch.counted;
}
}

#pragma GCC visibility pop
