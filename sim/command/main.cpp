// simbus: runs programs on a simulated bus.
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "Bus.h"
#include "Run.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;

constexpr char kUsage[] =
    "usage: simbus run SCENARIO [-- PROGRAM [ARGUMENT...]]\n"
    "       simbus control OPERATION [KEY=VALUE...]\n"
    "\n"
    "run      Runs a program that uses libusb or hidapi with the simulated devices of a scenario file.\n"
    "         Everything that the program starts is on the same bus, until the program ends: what one "
    "command\n"
    "         writes to a device, the next one can read. Without PROGRAM: your shell.\n"
    "\n"
    "             simbus run demo.json -- orvex-usb list --all\n"
    "             simbus run demo.json -- sh -c 'orvex-usb write --serial ECHO0001 --data 0102 &&\n"
    "                                            orvex-usb read --serial ECHO0001'\n"
    "\n"
    "         The exit status is the program's: 127 when there is no such program, 128 + N when signal N "
    "ended it;\n"
    "         and 1 when there can be no bus.\n"
    "\n"
    "control  Inside of `simbus run`: asks the bus to plug, unplug or change devices, and prints its answer. "
    "A value\n"
    "         that begins with a brace is JSON. The status is 1 when the bus refuses.\n"
    "\n"
    "             simbus control unplug device=echo1\n"
    "\n"
    "SIMBUS_SOCKET, if it is set, is where `simbus run` makes the bus's control socket, for programs "
    "outside.\n";

[[noreturn]] void refuseArguments() {
    std::cerr << kUsage;
    std::exit(kWrongArguments);
}

int run(int count, char** words) {
    if (count < 1 || words[0][0] == '-' || (count > 1 && std::strcmp(words[1], "--") != 0) || count == 2) {
        refuseArguments();
    }
    if (count > 2) {
        return simbus::command::run(words[0], words + 2);
    }
    const char* own = std::getenv("SHELL");
    std::string shell = own == nullptr || *own == '\0' ? "/bin/sh" : own;
    char* const program[] = {shell.data(), nullptr};
    std::cerr << "simbus: the bus ends with this shell" << std::endl;
    return simbus::command::run(words[0], program);
}

/// The request that the words `OPERATION KEY=VALUE...` stand for.
nlohmann::json requestOf(int count, char** words) {
    nlohmann::json request = {{"op", words[0]}};
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        const std::size_t sign = word.find('=');
        if (sign == std::string::npos) {
            refuseArguments();
        }
        const std::string value = word.substr(sign + 1);
        const bool isJson = value[0] == '{' || value == "true" || value == "false";
        request[word.substr(0, sign)] = isJson ? nlohmann::json::parse(value) : nlohmann::json(value);
    }
    return request;
}

int control(int count, char** words) {
    if (count < 1) {
        refuseArguments();
    }
    const nlohmann::json request = requestOf(count, words);
    if (std::getenv("SIMBUS_BUS") == nullptr) {
        throw std::runtime_error(
            "there is no bus to control: SIMBUS_BUS is not set, as it is inside of `simbus run`");
    }
    const std::string answer = simbus::Bus::instance().command(request.dump());
    std::cout << answer << std::endl;
    return nlohmann::json::parse(answer).value("ok", false) ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    try {
        if (verb == "run") {
            return run(argc - 2, argv + 2);
        }
        if (verb == "control") {
            return control(argc - 2, argv + 2);
        }
    } catch (const std::exception& problem) {
        std::cerr << "simbus: " << problem.what() << std::endl;
        return kFailed;
    }
    if (verb == "--help") {
        std::cout << kUsage;
        return 0;
    }
    refuseArguments();
}
