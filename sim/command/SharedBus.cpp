#include "SharedBus.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace simbus::command {

std::string shareBus(const PrivateFolder& folder, const std::function<void(Bus&)>& load) {
    if (std::getenv("SIMBUS_BUS") != nullptr) {
        throw std::runtime_error("this program is on a simulated bus already (SIMBUS_BUS)");
    }
    unsetenv("SIMBUS_SCENARIO");
    Bus& bus = Bus::instance();
    load(bus);
    const char* wanted = std::getenv("SIMBUS_SOCKET");
    const bool isWanted = wanted != nullptr && *wanted != '\0';
    std::string socket = std::filesystem::absolute(isWanted ? wanted : folder.path() + "/bus");
    if (!(isWanted ? bus.hasControlSocket() : bus.openControlSocket(socket))) {
        throw std::runtime_error("there is no control socket at " + socket);
    }
    bus.setFront(Bus::Front::shared);
    joinBus(socket);
    return socket;
}

}  // namespace simbus::command
