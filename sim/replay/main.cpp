// simbus-replay: makes devices of a capture.
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "Replay.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;

constexpr char kUsage[] =
    "usage: simbus-replay CAPTURE -- PROGRAM [ARGUMENT...]\n"
    "       simbus-replay CAPTURE [--to SCENARIO]\n"
    "\n"
    "Makes simulated devices of a capture, of simbus-record or of Wireshark and the Linux kernel's usbmon:\n"
    "with the recorded descriptors, and with the recorded answers to the requests and transfers that were\n"
    "seen, in the order in which they were seen. A request that was not seen stalls, and a line says so.\n"
    "What a device sent comes after the request or write that was the last one before it. A device that was\n"
    "unplugged is unplugged.\n"
    "\n"
    "With a program, runs it with these devices, as `simbus run` does; the exit status is the program's.\n"
    "Without one, writes the scenario of the devices. It has rules that answer control requests, in turn as\n"
    "each was answered; a program has to answer at the endpoints (sim/bus/README.md).\n";

int refuseArguments() {
    std::cerr << kUsage;
    return kWrongArguments;
}

int replay(int count, char** words) {
    const std::string capture = words[0];
    if (count == 1) {
        return simbus::replay::writeScenario(capture, std::cout);
    }
    if (std::strcmp(words[1], "--") == 0 && count > 2) {
        return simbus::replay::run(capture, words + 2);
    }
    if (std::strcmp(words[1], "--to") != 0 || count != 3) {
        return refuseArguments();
    }
    std::ofstream file(words[2]);
    if (!file) {
        std::cerr << "simbus-replay: " << words[2] << " cannot be written" << std::endl;
        return kFailed;
    }
    return simbus::replay::writeScenario(capture, file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << kUsage;
        return 0;
    }
    if (argc < 2 || argv[1][0] == '-') {
        return refuseArguments();
    }
    try {
        return replay(argc - 1, argv + 1);
    } catch (const std::exception& problem) {
        std::cerr << "simbus-replay: " << problem.what() << std::endl;
        return kFailed;
    }
}
