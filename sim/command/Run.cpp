#include "Run.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "Bus.h"
#include "Program.h"

namespace simbus::command {

namespace fs = std::filesystem;

int run(const std::string& scenario, char* const* program) {
    Bus& bus = Bus::instance();
    if (std::getenv("SIMBUS_BUS") != nullptr) {
        throw std::runtime_error("this program is on a simulated bus already (SIMBUS_BUS)");
    }
    bus.loadScenarioFile(scenario);
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
