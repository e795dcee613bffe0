// Hands calls on to the library that a recorder stands in for.
#pragma once

#include <string>

namespace simbus::record {

/// The folder of the recording, which simbus-record makes and names in SIMBUS_RECORD; empty when there is
/// none, and in programs that have more rights than their user. It has the file `capture`, the folder
/// `parts`, and links to the libraries that the program would use without the recorder.
std::string recordingFolder();

/// The link to the real library of this name, in the folder of a recording. Its own name is another one: when
/// macOS loads a library by any path, it first looks for the last name of the path in DYLD_LIBRARY_PATH, and
/// there it would find the recorder.
std::string linkToReal(const std::string& folder, const std::string& library);

/// Loads the library of this name from the recording's folder. Without one it says so, and returns null.
void* loadReal(const char* library);

/// Whether the real library, or one that it uses, has this function.
bool realHas(const char* function);

/// True on a thread that is inside of a call of the real library whose traffic is already recorded: calls
/// that the library then makes to its own functions come here, too, and only pass.
bool isInside();

/// Marks the thread as inside, or, for a function of the program that the library calls, as outside.
class Inside {
 public:
    explicit Inside(bool inside = true);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

 private:
    bool before_;
};

}  // namespace simbus::record

/// The function of the real library, for a call: REAL(libusb_open)(device, handle). RECORDED_FUNCTION
/// declares it.
#define RECORDED_FUNCTION(name) \
    extern "C" __attribute__((visibility("hidden"))) void* real_##name  // NOLINT(bugprone-macro-parentheses)
#define REAL(name) (reinterpret_cast<decltype(&(name))>(real_##name))
