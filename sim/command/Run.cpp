#include "Run.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "Bus.h"
#include "Program.h"

namespace simbus::command {
namespace {

namespace fs = std::filesystem;

void load(const std::string& scenario) {
    std::ifstream file(scenario);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.is_open() || file.bad() || fs::is_directory(scenario)) {
        throw std::runtime_error("scenario " + scenario + " cannot be read");
    }
    try {
        Bus::instance().loadScenario(text);
    } catch (const std::exception& problem) {
        throw std::runtime_error("scenario " + scenario + ": " + problem.what());
    }
}

}  // namespace

int run(const std::string& scenario, char* const* program) {
    Bus& bus = Bus::instance();
    if (std::getenv("SIMBUS_BUS") != nullptr) {
        throw std::runtime_error("this program is on a simulated bus already (SIMBUS_BUS)");
    }
    load(scenario);
    const PrivateFolder folder;
    const char* wanted = std::getenv("SIMBUS_SOCKET");
    const bool isWanted = wanted != nullptr && *wanted != '\0';
    const std::string socket = isWanted ? wanted : folder.path() + "/bus";
    if (!(isWanted ? bus.hasControlSocket() : bus.openControlSocket(socket))) {
        throw std::runtime_error("there is no control socket at " + socket);
    }
    bus.setFront(Bus::Front::shared);
    joinBus(fs::absolute(socket));
    return runProgram("simbus", program);
}

}  // namespace simbus::command
