#include "Forward.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace simbus::record {

namespace {

thread_local bool inside = false;

}  // namespace

std::string recordingFolder() {
    const char* folder = secure_getenv("SIMBUS_RECORD");
    return folder == nullptr ? "" : folder;
}

void* loadReal(const char* library) {
    const std::string folder = recordingFolder();
    // The path without links: the library finds others beside itself.
    const std::unique_ptr<char, decltype(&std::free)> path(
        folder.empty() ? nullptr : realpath((folder + "/real/" + library).c_str(), nullptr), &std::free);
    void* loaded = path == nullptr ? nullptr : dlopen(path.get(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        const char* problem = path == nullptr ? nullptr : dlerror();
        std::fprintf(stderr, "simbus-record: there is no %s to record: %s\n", library,
                     problem == nullptr ? "it is not installed, or simbus-record has not started this program"
                                        : problem);
    }
    return loaded;
}

bool isInside() {
    return inside;
}

Inside::Inside(bool now) : before_(inside) {
    inside = now;
}

Inside::~Inside() {
    inside = before_;
}

}  // namespace simbus::record
