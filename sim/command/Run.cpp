#include "Run.h"

#include "SharedBus.h"

namespace simbus::command {

int run(const std::string& scenario, char* const* program) {
    const PrivateFolder folder;
    shareBus(folder, [&](Bus& bus) { bus.loadScenarioFile(scenario); });
    return runProgram("simbus", program);
}

}  // namespace simbus::command
