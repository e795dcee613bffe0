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
    "usage: simbus-record [--to FILE] [--] PROGRAM [ARGUMENT...]\n"
    "\n"
    "Runs a program that uses libusb or hidapi, and records what it and everything that it starts sends to\n"
    "devices and receives from them, beginning with the descriptors of each device that is opened. It needs "
    "no\n"
    "right that the program does not have. FILE (capture.pcapng) is a capture as the Linux kernel's usbmon "
    "makes\n"
    "them: Wireshark opens it, and simbus-replay makes devices of it. It has everything that was "
    "transferred,\n"
    "also serial numbers and passwords; only you can read it. A file that is there is replaced.\n"
    "\n"
    "    simbus-record --to bug.pcapng -- dfu-util --list\n"
    "\n"
    "The exit status is the program's: 127 when there is no such program, 128 + N when signal N ended it; "
    "and 1\n"
    "when nothing can be recorded.\n";

}  // namespace

int main(int argc, char** argv) {
    std::string file = "capture.pcapng";
    int at = 1;
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << kUsage;
        return 0;
    }
    if (argc > 2 && std::strcmp(argv[1], "--to") == 0) {
        file = argv[2];
        at = 3;
    }
    if (at < argc && std::strcmp(argv[at], "--") == 0) {
        ++at;
    } else if (at < argc && argv[at][0] == '-') {
        at = argc;
    }
    if (at >= argc || file.empty()) {
        std::cerr << kUsage;
        return kWrongArguments;
    }
    try {
        return simbus::record::run(file, argv + at);
    } catch (const std::exception& problem) {
        std::cerr << "simbus-record: " << problem.what() << std::endl;
        return kFailed;
    }
}
