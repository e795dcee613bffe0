// Which change of the sources is on, and which places a run comes by: linked into the programs of
// script/mutate only.
#include <atomic>
#include <cstdlib>
#include <fstream>

namespace {

constexpr int kMost = 20'000;

/// Tells at the end of the process which numbers were asked for.
struct Visits {
    ~Visits() {
        if (const char* path = std::getenv("ORVEX_MUTANT_VISITS")) {
            std::ofstream file(path);
            for (int number = 0; number < kMost; ++number) {
                if (asked[number].load(std::memory_order_relaxed)) {
                    file << number << '\n';
                }
            }
        }
    }
    std::atomic<bool> asked[kMost] = {};
};

int chosen() {
    const char* number = std::getenv("ORVEX_MUTANT");
    return number == nullptr ? -1 : std::atoi(number);
}

}  // namespace

bool mutant(int number);

bool mutant(int number) {
    static Visits visits;
    static const int on = chosen();
    visits.asked[number].store(true, std::memory_order_relaxed);
    return number == on;
}
