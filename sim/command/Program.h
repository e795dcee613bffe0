// What the commands that run a program have in common.
#pragma once

#include <filesystem>
#include <string>

namespace simbus::command {

/// A folder that no other user can reach; removed at the end.
class PrivateFolder {
 public:
    /// Throws std::system_error.
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::string& path() const { return path_; }

 private:
    std::string path_;
};

/// The folder of this program.
std::filesystem::path ownFolder();

/// Programs that are started from now on have this folder first in the path that the variable is.
void searchFirst(const char* variable, const std::string& folder);

/// Programs that are started from now on use the bus with this control socket, through the drop-in libraries
/// in the folder `lib` beside this program; those in Python find the module in `python` there.
void joinBus(const std::string& socket);

/// Runs a program until it ends; `program` is its argument vector, with a null at its end. Signals that would
/// end this process go to it. Returns its exit status, 128 plus the number of the signal that ended it, 127
/// when there is no such program, 126 when it cannot be started; in both cases it says so in the name of
/// `caller`.
int runProgram(const char* caller, char* const* program);

}  // namespace simbus::command
