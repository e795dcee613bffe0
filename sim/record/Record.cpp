#include "Record.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Forward.h"
#include "Journal.h"
#include "Program.h"
#include "capture/Anonymous.h"
#include "capture/CaptureFile.h"

namespace simbus::record {

namespace {

namespace fs = std::filesystem;

constexpr char kName[] = "simbus-record";

/// A library that is recorded, and a function of it.
struct Library {
    const char* name;
    const char* function;
};

#ifdef RECORDS_HIDAPI
constexpr Library kLibraries[] = {
    {"libusb-1.0", "libusb_init"}, {"libhidapi-hidraw", "hid_init"}, {"libhidapi-libusb", "hid_init"}};
constexpr char kNone[] = "there is nothing to record: neither libusb-1.0 nor hidapi is installed";
#else
constexpr Library kLibraries[] = {{"libusb-1.0", "libusb_init"}};
constexpr char kNone[] = "there is nothing to record: libusb-1.0 is not installed";
#endif

#ifdef __APPLE__
constexpr char kLibraryPath[] = "DYLD_LIBRARY_PATH";
constexpr char kVersionEnding[] = ".0.dylib";
constexpr char kEnding[] = ".dylib";
#else
constexpr char kLibraryPath[] = "LD_LIBRARY_PATH";
constexpr char kVersionEnding[] = ".so.0";
constexpr char kEnding[] = ".so";
#endif

/// Where to look for a library that is in no folder of the library path.
std::vector<std::string> placesOf(const std::string& name) {
#ifdef LIBUSB_FOLDER
    // A Mac does not look where the build found it, nor where Homebrew has it after an update.
    return {name, LIBUSB_FOLDER "/" + name, "/opt/homebrew/lib/" + name};
#else
    return {name};
#endif
}

/// The file that a program gets when it asks for a library by this name; empty when there is none.
fs::path fileOf(const Library& library, const std::string& name) {
    const char* folders = std::getenv(kLibraryPath);
    std::istringstream path(folders == nullptr ? "" : folders);
    for (std::string folder; std::getline(path, folder, ':');) {
        if (fs::exists(fs::path(folder) / name)) {
            return fs::canonical(fs::path(folder) / name);
        }
    }
    for (const std::string& place : placesOf(name)) {
        void* loaded = dlopen(place.c_str(), RTLD_LAZY | RTLD_LOCAL);
        void* function = loaded == nullptr ? nullptr : dlsym(loaded, library.function);
        if (Dl_info found{}; function != nullptr && dladdr(function, &found) != 0) {
            return fs::canonical(found.dli_fname);
        }
    }
    return {};
}

/// Puts the recorder of each library that is there into the folder `lib`, and a link to the library beside
/// that folder. A library that is not there is missing for the program as before.
std::set<std::string> placeLibraries(const fs::path& folder) {
    const fs::path recorders = command::ownFolder() / "record-lib";
    std::set<std::string> placed;
    for (const Library& library : kLibraries) {
        const std::string name = std::string(library.name) + kVersionEnding;
        if (const fs::path real = fileOf(library, name); !real.empty()) {
            fs::create_symlink(real, linkToReal(folder, name));
            fs::create_symlink(recorders / name, folder / "lib" / name);
            fs::create_symlink(recorders / name, folder / "lib" / (std::string(library.name) + kEnding));
            placed.insert(library.name);
        }
    }
    return placed;
}

/// Returns its descriptor, for appending.
int createFile(const std::string& file) {
    const int created = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (created < 0) {
        throw std::runtime_error(file + ": " + std::strerror(errno));
    }
    return created;
}

/// Returns false, with the reason said, when the disk is full.
bool appendWhole(int file, const capture::Bytes& bytes, const std::string& name) {
    const int problem = appendTo(file, bytes.data(), bytes.size());
    if (problem != 0) {
        std::cerr << "simbus-record: nothing is recorded: " << name << ": " << std::strerror(problem)
                  << std::endl;
    }
    return problem == 0;
}

/// Returns its descriptor, for appending, or -1, with the reason said, when the disk is full.
int createCapture(const std::string& file) {
    const int created = createFile(file);
    const capture::Bytes header = capture::captureHeader(kName);
    if (!appendWhole(created, header, file)) {
        close(created);
        return -1;
    }
    return created;
}

/// Appends what the programs have not written themselves.
void collect(const fs::path& parts, int capture) {
    for (const auto& each : fs::directory_iterator(parts)) {
        std::ifstream file(each.path(), std::ios::binary);
        const capture::Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::uint64_t used = 0;
        if (bytes.size() < sizeof(Part)) {
            continue;
        }
        std::memcpy(&used, bytes.data() + offsetof(Part, used), sizeof used);
        const int problem =
            used > Part::kRoom ? 0 : appendTo(capture, bytes.data() + offsetof(Part, bytes), used);
        if (problem != 0) {
            std::cerr << "simbus-record: the end of the recording is missing: " << std::strerror(problem)
                      << std::endl;
            return;
        }
    }
}

std::string counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// Writes the file of the capture without what is to be left out of it. Returns false, with the reason said,
/// when the disk is full.
bool writeReduced(capture::Capture& capture, const Options& options) {
    if (options.anonymous) {
        capture::blankSerialNumbers(capture);
    }
    if (options.withoutData) {
        capture::omitData(capture);
    }
    const int file = createFile(options.file);
    const bool isWritten = appendWhole(file, capture::captureOf(kName, capture.packets), options.file);
    close(file);
    return isWritten;
}

void summarise(const capture::Capture& capture, const std::string& file) {
    std::set<std::pair<unsigned, unsigned>> devices;
    std::uint64_t transfers = 0;
    std::uint64_t bytes = 0;
    std::uint64_t first = UINT64_MAX;
    std::uint64_t last = 0;
    for (const capture::Packet& packet : capture.packets) {
        devices.insert({packet.bus, packet.device});
        transfers += packet.event == capture::Event::completion ? 1 : 0;
        bytes += packet.event == capture::Event::completion ? packet.length : 0;
        first = std::min(first, packet.nanoseconds);
        last = std::max(last, packet.nanoseconds);
    }
    std::cerr << "simbus-record: recorded " << counted(devices.size(), "device") << ", "
              << counted(transfers, "transfer") << ", " << counted(bytes, "byte") << " in "
              << (capture.packets.empty() ? 0 : (last - first) / 1'000'000) << " ms: " << file << std::endl;
    for (const std::string& problem : capture.problems) {
        std::cerr << "simbus-record: " << problem << std::endl;
    }
}

void sayWhatIsRecorded(const std::set<std::string>& libraries, const Options& options) {
    std::cerr << "simbus-record: records all that is sent and received over";
    for (const std::string& library : libraries) {
        std::cerr << " " << library;
    }
    std::cerr << (options.withoutData ? ", without its contents" : ", with its contents")
              << (options.anonymous ? ", without serial numbers: " : ": ") << options.file << std::endl;
}

}  // namespace

int run(const Options& options, char* const* program) {
    if (!recordingFolder().empty()) {
        throw std::runtime_error("this program is recorded already (SIMBUS_RECORD)");
    }
    const command::PrivateFolder own;
    const fs::path folder = own.path();
    for (const char* part : {"lib", "parts"}) {
        fs::create_directory(folder / part);
    }
    const std::set<std::string> libraries = placeLibraries(folder);
    if (libraries.empty()) {
        throw std::runtime_error(kNone);
    }
    const bool isReduced = options.anonymous || options.withoutData;
    const std::string file = isReduced ? (folder / "whole").string() : fs::absolute(options.file).string();
    if (isReduced) {
        close(createFile(options.file));
    }
    const int capture = createCapture(file);
    if (capture < 0) {
        return command::runProgram(kName, program);
    }
    fs::create_symlink(file, folder / "capture");
    sayWhatIsRecorded(libraries, options);
    setenv("SIMBUS_RECORD", folder.c_str(), 1);
    command::searchFirst(kLibraryPath, folder / "lib");
    const int status = command::runProgram(kName, program);
    collect(folder / "parts", capture);
    close(capture);
    capture::Capture recorded = capture::readCaptureFile(file);
    if (!isReduced || writeReduced(recorded, options)) {
        summarise(recorded, options.file);
    }
    return status;
}

}  // namespace simbus::record
