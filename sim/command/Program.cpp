#include "Program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <system_error>

#ifdef __APPLE__
extern "C" char** environ;  // no header there has it
#endif

namespace simbus::command {

namespace fs = std::filesystem;

namespace {

constexpr int kCannotStart = 126;
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

volatile std::sig_atomic_t started = 0;  // the program's process id

/// The terminal sends these to the program, too, which decides what to do.
void leaveInterruptsToProgram() {
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
}

void passOn(int signal) {
    kill(static_cast<pid_t>(started), signal);
}

/// Returns 0 or an error of the system.
int start(char* const* program) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t ownWay;
    sigemptyset(&ownWay);
    sigaddset(&ownWay, SIGINT);
    sigaddset(&ownWay, SIGQUIT);
    posix_spawnattr_setsigdefault(&attributes, &ownWay);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    const int problem = posix_spawnp(&process, program[0], nullptr, &attributes, program, environ);
    posix_spawnattr_destroy(&attributes);
    started = process;
    return problem;
}

int waitForEnd() {
    int status = 0;
    while (waitpid(static_cast<pid_t>(started), &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

PrivateFolder::PrivateFolder() {
    const char* place = std::getenv("XDG_RUNTIME_DIR");
    const bool isThere = place != nullptr && *place == '/' && access(place, W_OK) == 0;
    path_ = std::string(isThere ? place : "/tmp") + "/simbus-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

fs::path ownFolder() {
#ifdef __APPLE__
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    _NSGetExecutablePath(path.data(), &size);
    return fs::canonical(path.c_str()).parent_path();
#else
    return fs::read_symlink("/proc/self/exe").parent_path();
#endif
}

void searchFirst(const char* variable, const std::string& folder) {
    const char* others = std::getenv(variable);
    const bool isFirst = others == nullptr || *others == '\0';
    setenv(variable, (isFirst ? folder : folder + ":" + std::string(others)).c_str(), 1);
}

void joinBus(const std::string& socket) {
    searchFirst("LD_LIBRARY_PATH", ownFolder() / "lib");
    searchFirst("PYTHONPATH", ownFolder() / "python");
    setenv("SIMBUS_BUS", socket.c_str(), 1);
    unsetenv("SIMBUS_SCENARIO");
    unsetenv("SIMBUS_SOCKET");
}

int runProgram(const char* caller, char* const* program) {
    leaveInterruptsToProgram();
    if (const int problem = start(program); problem != 0) {
        std::cerr << caller << ": " << program[0] << ": " << std::strerror(problem) << std::endl;
        return problem == ENOENT ? kNotFound : kCannotStart;
    }
    std::signal(SIGTERM, passOn);
    std::signal(SIGHUP, passOn);
    return waitForEnd();
}

}  // namespace simbus::command
