// The functions of the library that the recorder stands in for. Each is a jump to the same function of the
// real library, whatever its arguments are; the functions that are recorded replace theirs, which are weak.
#include <dlfcn.h>

#include <cstring>

#include "Forward.h"

// What functions.inc, which the build makes, consists of: FUNCTION(name), for each function of the library.
extern "C" {
#define FUNCTION(name)       \
    RECORDED_FUNCTION(name); \
    void* real_##name = nullptr;
#include "functions.inc"
#undef FUNCTION
}

#if defined(__APPLE__) && defined(__aarch64__)
#define JUMP(name) "adrp x16, _real_" #name "@PAGE\n ldr x16, [x16, _real_" #name "@PAGEOFF]\n br x16\n"
#elif defined(__APPLE__) && defined(__x86_64__)
#define JUMP(name) "jmpq *_real_" #name "(%rip)\n"
#elif defined(__x86_64__)
#define JUMP(name) "endbr64\n jmp *real_" #name "(%rip)\n"
#elif defined(__aarch64__)
#define JUMP(name) "hint #34\n adrp x16, real_" #name "\n ldr x16, [x16, #:lo12:real_" #name "]\n br x16\n"
#else
#error "the jumps of the recorder are written for x86-64 and arm64"
#endif

#ifdef __APPLE__
#define FUNCTION(name) ".globl _" #name "\n.weak_definition _" #name "\n_" #name ":\n" JUMP(name)
#else
#define FUNCTION(name) ".weak " #name "\n.type " #name ", %function\n" #name ":\n" JUMP(name)
#endif
asm(".text\n"
#include "functions.inc"
);
#undef FUNCTION

namespace {

/// A function of the library: its name, and where calls of it go to.
struct Function {
    const char* name;
    void** real;
};

#define FUNCTION(name) {#name, &real_##name},
constexpr Function kFunctions[] = {
#include "functions.inc"
};
#undef FUNCTION

void* realLibrary = nullptr;

/// What is called in the place of a function that the real library, an older one, does not have.
int missing() {
    constexpr bool kIsLibusb = RECORDED_LIBRARY[3] == 'u';
    return kIsLibusb ? -12 : -1;  // LIBUSB_ERROR_NOT_SUPPORTED; hidapi has one code
}
const wchar_t* missingText() {
    return L"unknown";
}

/// When the recorder is loaded: before any function of it can be called.
__attribute__((constructor)) void connectAll() {
    realLibrary = simbus::record::loadReal(RECORDED_LIBRARY);
    for (const Function& function : kFunctions) {
        void* found = realLibrary == nullptr ? nullptr : dlsym(realLibrary, function.name);
        const bool isText = std::strcmp(function.name, "hid_read_error") == 0;
        void* none = isText ? reinterpret_cast<void*>(&missingText) : reinterpret_cast<void*>(&missing);
        *function.real = found == nullptr ? none : found;
    }
}

}  // namespace

bool simbus::record::realHas(const char* function) {
    return realLibrary != nullptr && dlsym(realLibrary, function) != nullptr;
}
