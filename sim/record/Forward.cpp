#include "Forward.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace simbus::record {

namespace {

thread_local bool inside = false;

/// The path by which the library is loaded that the link leads to; empty when there is none.
std::string pathOf(const std::string& link) {
#ifdef __APPLE__
    return access(link.c_str(), F_OK) == 0 ? link : "";
#else
    // The path without links: the library finds others beside itself.
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(link.c_str(), nullptr), &std::free);
    return path == nullptr ? "" : path.get();
#endif
}

}  // namespace

std::string recordingFolder() {
    constexpr char kVariable[] = "SIMBUS_RECORD";
#ifdef __APPLE__
    const char* folder = issetugid() != 0 ? nullptr : std::getenv(kVariable);
#else
    const char* folder = secure_getenv(kVariable);
#endif
    return folder == nullptr ? "" : folder;
}

std::string linkToReal(const std::string& folder, const std::string& library) {
    return folder + "/real-" + library;
}

void* loadReal(const char* library) {
    const std::string folder = recordingFolder();
    const std::string path = folder.empty() ? "" : pathOf(linkToReal(folder, library));
    void* loaded = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        const char* problem = path.empty() ? nullptr : dlerror();
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
