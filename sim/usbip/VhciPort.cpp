#include "VhciPort.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "UrbMessages.h"

namespace simbus::usbip {
namespace {

const std::string kControllers = "/sys/devices/platform/vhci_hcd.";
const std::string kController = kControllers + "0/";
const std::string kDevices = "/sys/bus/usb/devices/";
constexpr int kStateFree = 4;
constexpr std::chrono::seconds kDeadline{10};

struct Port {
    std::string hub;  // "hs" or "ss"
    int number = 0;
    int state = 0;
    std::string device;  // its name in sysfs; "0-0" until the kernel has assigned an address
    int controller = 0;
    int numberOnHub = 0;  // counted from 1
};

/// Files "status", "status.1", ...: one per controller, a heading line, then a line for each port: hub,
/// number, state, speed, device id, socket, device. The numbers are decimal although they begin with zeros.
std::string statusOf(int controller) {
    return kController + (controller == 0 ? "status" : "status." + std::to_string(controller));
}

/// Some kernels crash when the status of a controller that has no driver any more is read.
bool hasDriver(int controller) {
    return std::filesystem::exists(kControllers + std::to_string(controller) + "/driver");
}

bool findPort(const std::function<bool(const Port&)>& wanted, Port& found) {
    for (int controller = 0; std::filesystem::exists(statusOf(controller)); ++controller) {
        if (!hasDriver(controller)) {
            continue;
        }
        std::ifstream file(statusOf(controller));
        std::string line;
        std::getline(file, line);
        found = {};
        found.controller = controller;
        while (std::getline(file, line)) {
            std::istringstream fields(line);
            std::string hub, speed, id, socket;
            fields >> hub >> found.number >> found.state >> speed >> id >> socket >> found.device;
            found.numberOnHub = hub == found.hub ? found.numberOnHub + 1 : 1;
            found.hub = hub;
            if (fields && wanted(found)) {
                return true;
            }
        }
    }
    return false;
}

bool findPort(int number, Port& found) {
    return findPort([&](const Port& each) { return each.number == number; }, found);
}

/// Polls, because the kernel sends no events for these conditions.
bool waitUntil(const std::function<bool()>& reached) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!reached()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool isConfigured(const std::string& device) {
    int configuration = 0;
    std::ifstream file(kDevices + device + "/bConfigurationValue");
    return file >> configuration && configuration != 0;
}

/// The name in sysfs of a device at this port: the number of the hub's bus, then that on the hub.
std::string deviceNameAt(const Port& port) {
    const std::string hubSpeed = port.hub == "hs" ? "480" : "5000";
    const std::string controller = kControllers + std::to_string(port.controller);
    for (const auto& entry : std::filesystem::directory_iterator(controller)) {
        std::string speed, bus;
        if (std::ifstream(entry.path() / "speed") >> speed && speed == hubSpeed &&
            std::ifstream(entry.path() / "busnum") >> bus) {
            return bus + "-" + std::to_string(port.numberOnHub);
        }
    }
    return "0-0";
}

bool isFree(const Port& port, Speed speed) {
    return port.state == kStateFree && port.hub == (speed == Speed::super ? "ss" : "hs");
}

/// The kernel may remove a device later than vhci_hcd frees its port. Until then it takes the next device, if
/// that has the same descriptors, for the old one.
bool isEmpty(const Port& port) {
    return !std::filesystem::exists(kDevices + deviceNameAt(port));
}

bool findFreePort(Speed speed, Port& found) {
    return findPort([&](const Port& each) { return isFree(each, speed); }, found);
}

bool findEmptyPort(Speed speed, Port& found) {
    return findPort([&](const Port& each) { return isFree(each, speed) && isEmpty(each); }, found);
}

}  // namespace

void waitForEmptyPort(Speed speed) {
    Port port;
    waitUntil([&] { return findEmptyPort(speed, port) || !findFreePort(speed, port); });
}

int attachToFreePort(int socket, Speed speed, ConnectionId connection) {
    Port port;
    if (!findEmptyPort(speed, port) && !findFreePort(speed, port)) {
        throw std::runtime_error("there is no free port at " + kController + " (modprobe vhci_hcd)");
    }
    std::ofstream attach(kController + "attach");
    attach << port.number << ' ' << socket << ' ' << connection << ' ' << kernelSpeed(speed) << std::flush;
    if (!attach) {
        throw std::runtime_error("the kernel refused the device at port " + std::to_string(port.number));
    }
    return port.number;
}

bool waitUntilConfigured(int number) {
    Port port;
    return waitUntil(
        [&] { return findPort(number, port) && (port.state == kStateFree || isConfigured(port.device)); });
}

bool waitUntilFree(int number) {
    Port port;
    return waitUntil([&] { return findPort(number, port) && port.state == kStateFree; });
}

}  // namespace simbus::usbip
