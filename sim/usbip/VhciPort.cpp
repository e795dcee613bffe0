#include "VhciPort.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace simbus::usbip {
namespace {

const std::string controller = "/sys/devices/platform/vhci_hcd.0/";
constexpr int stateFree = 4;
constexpr std::chrono::seconds freeDeadline{10};

struct Port {
    std::string hub;  // "hs" or "ss"
    int number = 0;
    int state = 0;
};

// The kernel's numbers for speeds.
int kernelSpeed(Speed speed) {
    switch (speed) {
        case Speed::full:
            return 2;
        case Speed::high:
            return 3;
        case Speed::super:
            return 5;
    }
    return 2;
}

// Status files are "status", "status.1", ...: one per group of ports, a heading line, then a line for each
// port that starts with hub, number and state. The numbers are decimal although they begin with zeros.
bool findPort(const std::function<bool(const Port&)>& wanted, Port& found) {
    for (int group = 0;; ++group) {
        std::ifstream file(controller + (group == 0 ? "status" : "status." + std::to_string(group)));
        if (!file) {
            return false;
        }
        std::string line;
        std::getline(file, line);
        while (std::getline(file, line)) {
            std::istringstream fields(line);
            if (fields >> found.hub >> found.number >> found.state && wanted(found)) {
                return true;
            }
        }
    }
}

}  // namespace

int attachToFreePort(int socket, Speed speed, ConnectionId connection) {
    const std::string hub = speed == Speed::super ? "ss" : "hs";
    Port port;
    if (!findPort([&](const Port& each) { return each.hub == hub && each.state == stateFree; }, port)) {
        throw std::runtime_error("there is no free port at " + controller + " (modprobe vhci_hcd)");
    }
    std::ofstream attach(controller + "attach");
    attach << port.number << ' ' << socket << ' ' << connection << ' ' << kernelSpeed(speed) << std::flush;
    if (!attach) {
        throw std::runtime_error("the kernel refused the device at port " + std::to_string(port.number));
    }
    return port.number;
}

bool waitUntilFree(int number) {
    const auto deadline = std::chrono::steady_clock::now() + freeDeadline;
    Port port;
    while (
        !findPort([&](const Port& each) { return each.number == number && each.state == stateFree; }, port)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        // The kernel has no event for it.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace simbus::usbip
