// simbus-record: records what a program sends and receives over USB.
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "Record.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;

constexpr char kUsage[] =
    R"(usage: simbus-record [--to FILE] [--anonymous] [--without-data] [--] PROGRAM [ARGUMENT...]

Runs a program that uses libusb or hidapi (on macOS: libusb), and records what it and everything that it
starts sends to devices and receives from them, beginning with the descriptors of each device that is
opened. It needs no right that the program does not have. FILE (capture.pcapng) is a capture as the Linux
kernel's usbmon makes them: Wireshark opens it, and simbus-replay makes devices of it. It has everything that
was transferred, also serial numbers and passwords; only you can read it. A file that is there is replaced.

  --anonymous     serial numbers consist of zeroes, in their descriptors and where they occur in data as text
  --without-data  only standard requests have their data; other transfers only have lengths

    simbus-record --to bug.pcapng -- dfu-util --list

The exit status is the program's: 127 when there is no such program, 128 + N when signal N ended it; and 1
when nothing can be recorded.
)";

/// Returns the place of the program in the arguments, or 0 when they are wrong.
int readOptions(int argc, char** argv, simbus::record::Options& options) {
    int at = 1;
    for (; at < argc && argv[at][0] == '-'; ++at) {
        const std::string option = argv[at];
        if (option == "--") {
            ++at;
            break;
        }
        if (option == "--anonymous") {
            options.anonymous = true;
        } else if (option == "--without-data") {
            options.withoutData = true;
        } else if (option == "--to" && at + 1 < argc) {
            options.file = argv[++at];
        } else {
            return 0;
        }
    }
    return at < argc && !options.file.empty() ? at : 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << kUsage;
        return 0;
    }
    simbus::record::Options options;
    const int program = readOptions(argc, argv, options);
    if (program == 0) {
        std::cerr << kUsage;
        return kWrongArguments;
    }
    try {
        return simbus::record::run(options, argv + program);
    } catch (const std::exception& problem) {
        std::cerr << "simbus-record: " << problem.what() << std::endl;
        return kFailed;
    }
}
