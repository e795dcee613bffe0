#include "Objects.h"

namespace sim {

State& state() {
    static auto* const all = new State;
    return *all;
}

ThreadState& threadState() {
    thread_local ThreadState thread;
    return thread;
}

}  // namespace sim
