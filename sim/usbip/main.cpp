// simbus-usbip: shows the devices of a scenario to the running Linux kernel until it is told to stop.
#include <getopt.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "KernelFront.h"

namespace {

constexpr char usage[] =
    "usage: simbus-usbip [--scenario FILE] [--control SOCKET] [--ready-file FILE]\n"
    "\n"
    "Shows the simulated devices of a scenario to this machine's kernel (needs root and the module "
    "vhci_hcd)\n"
    "until SIGTERM or SIGINT; then all devices are unplugged.\n"
    "\n"
    "  --scenario FILE    the devices (default: environment variable SIMBUS_SCENARIO)\n"
    "  --control SOCKET   where the control socket is made (default: environment variable SIMBUS_SOCKET)\n"
    "  --ready-file FILE  made when all devices that are plugged in from the start are configured\n";

sem_t stopRequested;

struct Options {
    std::string scenario;
    std::string control;
    std::string readyFile;
};

// Exits at --help and at wrong arguments.
Options parseOptions(int argc, char** argv) {
    static const option known[] = {{"scenario", required_argument, nullptr, 's'},
                                   {"control", required_argument, nullptr, 'c'},
                                   {"ready-file", required_argument, nullptr, 'r'},
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
            case 'h':
                std::cout << usage;
                std::exit(0);
            default:
                std::cerr << usage;
                std::exit(2);
        }
    }
    if (optind != argc) {
        std::cerr << usage;
        std::exit(2);
    }
    return options;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw std::runtime_error("cannot read " + path);
    }
    return text.str();
}

void stopOnSignals() {
    sem_init(&stopRequested, 0, 0);
    struct sigaction action {};
    action.sa_handler = [](int) { sem_post(&stopRequested); };
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

// The bus makes its control socket when it is loaded, at the path in the environment: start again with that.
void restartWithControl(const std::string& path, char** argv) {
    const char* current = std::getenv("SIMBUS_SOCKET");
    if (!path.empty() && (current == nullptr || path != current)) {
        setenv("SIMBUS_SOCKET", path.c_str(), 1);
        execv("/proc/self/exe", argv);
        throw std::system_error(errno, std::generic_category(), "restart");
    }
}

void run(const Options& options) {
    if (!options.control.empty() && access(options.control.c_str(), F_OK) != 0) {
        throw std::runtime_error("there is no control socket at " + options.control);
    }
    if (!options.scenario.empty()) {
        simbus::Bus::instance().loadScenario(readFile(options.scenario));
    }
    static auto& front = *new simbus::usbip::KernelFront();  // never freed: the bus may call it until the end
    if (!options.readyFile.empty() && !(std::ofstream(options.readyFile) << "ready" << std::endl)) {
        throw std::runtime_error("cannot write " + options.readyFile);
    }
    while (sem_wait(&stopRequested) != 0) {
    }
    front.close();
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
