// simbus-usbip: presents the devices of a scenario to a Linux kernel, this machine's or others', until it is
// stopped.
#include <getopt.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "KernelFront.h"
#include "RemoteFront.h"

namespace {

constexpr char kUsage[] =
    "usage: simbus-usbip [--listen PORT] [--scenario FILE] [--control SOCKET] [--ready-file FILE]\n"
    "\n"
    "Shows the simulated devices of a scenario to this machine's kernel (needs root and the module "
    "vhci_hcd)\n"
    "until SIGTERM or SIGINT; then all devices are unplugged.\n"
    "\n"
    "  --listen PORT      a server of USB/IP at that port of 127.0.0.1 instead: lends each device to whoever "
    "attaches\n"
    "                     it (usbip attach; 3240 is the usual port); needs neither root nor a module\n"
    "  --scenario FILE    the devices (default: environment variable SIMBUS_SCENARIO)\n"
    "  --control SOCKET   where the control socket is made (default: environment variable SIMBUS_SOCKET)\n"
    "  --ready-file FILE  made when all devices that are plugged in from the start are configured\n";

sem_t stopRequested;

struct Options {
    std::string scenario;
    std::string control;
    std::string readyFile;
    std::uint16_t port = 0;  // 0: this machine's kernel
};

[[noreturn]] void refuseArguments() {
    std::cerr << kUsage;
    std::exit(2);
}

std::uint16_t parsePort(const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long port = digits && text.size() <= 5 ? std::stoul(text) : 0;
    if (port == 0 || port > UINT16_MAX) {
        refuseArguments();
    }
    return static_cast<std::uint16_t>(port);
}

/// Exits on --help and on wrong arguments.
Options parseOptions(int argc, char** argv) {
    static const option known[] = {{"scenario", required_argument, nullptr, 's'},
                                   {"control", required_argument, nullptr, 'c'},
                                   {"ready-file", required_argument, nullptr, 'r'},
                                   {"listen", required_argument, nullptr, 'l'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    for (int choice = 0; (choice = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (choice) {
            case 's':
                options.scenario = optarg;
                break;
            case 'c':
                options.control = optarg;
                break;
            case 'r':
                options.readyFile = optarg;
                break;
            case 'l':
                options.port = parsePort(optarg);
                break;
            case 'h':
                std::cout << kUsage;
                std::exit(0);
            default:
                refuseArguments();
        }
    }
    if (optind != argc) {
        refuseArguments();
    }
    return options;
}

void stopOnSignals() {
    sem_init(&stopRequested, 0, 0);
    struct sigaction action {};
    action.sa_handler = [](int) { sem_post(&stopRequested); };
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

/// The bus creates its control socket when it is loaded, at the path in the environment: restart with that
/// variable set.
void restartWithControl(const std::string& path, char** argv) {
    const char* current = std::getenv("SIMBUS_SOCKET");
    if (!path.empty() && (current == nullptr || path != current)) {
        setenv("SIMBUS_SOCKET", path.c_str(), 1);
        execv("/proc/self/exe", argv);
        throw std::system_error(errno, std::generic_category(), "restart");
    }
}

void untilStopped(const Options& options) {
    if (!options.readyFile.empty() && !(std::ofstream(options.readyFile) << "ready" << std::endl)) {
        throw std::runtime_error("cannot write " + options.readyFile);
    }
    while (sem_wait(&stopRequested) != 0) {
    }
}

// Fronts are never freed: the bus may call them until the process has ended.

void showHere(const Options& options) {
    static auto& front = *new simbus::usbip::KernelFront();
    untilStopped(options);
    front.close();
}

void lend(const Options& options) {
    static auto& front = *new simbus::usbip::RemoteFront();
    front.listen(options.port);
    untilStopped(options);
    front.close();
}

void run(const Options& options) {
    if (!options.control.empty() && !simbus::Bus::instance().hasControlSocket()) {
        throw std::runtime_error("there is no control socket at " + options.control);
    }
    if (!options.scenario.empty()) {
        simbus::Bus::instance().loadScenarioFile(options.scenario);
    }
    options.port == 0 ? showHere(options) : lend(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parseOptions(argc, argv);
        restartWithControl(options.control, argv);
        stopOnSignals();
        run(options);
        return 0;
    } catch (const std::exception& problem) {
        std::cerr << "simbus-usbip: " << problem.what() << std::endl;
        return 1;
    }
}
