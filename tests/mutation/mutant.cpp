// Selects the change that is switched on, and records the places that a run reaches. Only for the programs of
// script/mutate.
#include <atomic>
#include <cstdlib>
#include <fstream>

namespace {

constexpr int kMost = 20'000;

std::atomic<bool> g_asked[kMost] = {};

/// Writes the numbers that were evaluated, at the end of the process, after the destructors of all static
/// objects. A test may run in several processes; each appends its numbers.
[[gnu::destructor]] void tellVisits() {
    if (const char* path = std::getenv("ORVEX_MUTANT_VISITS")) {
        std::ofstream file(path, std::ios::app);
        for (int number = 0; number < kMost; ++number) {
            if (g_asked[number].load(std::memory_order_relaxed)) {
                file << number << '\n';
            }
        }
    }
}

int chosen() {
    const char* number = std::getenv("ORVEX_MUTANT");
    return number == nullptr ? -1 : std::atoi(number);
}

}  // namespace

bool mutant(int number);

bool mutant(int number) {
    static const int on = chosen();
    g_asked[number].store(true, std::memory_order_relaxed);
    return number == on;
}
