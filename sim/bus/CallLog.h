// Record of the calls of the program under test: counts, faults and hooks by function name, violations,
// tallies. One for the process; its own lock is never held while a hook runs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Bus.h"

namespace simbus {

class CallLog {
 public:
    static CallLog& instance();

    void add(CallPoint& point);
    std::optional<int> enter(const CallPoint& point);

    void fail(const std::string& function, unsigned nth, int code, unsigned times);
    void clearFaults();
    void hook(const std::string& function, std::function<void()> hook);
    void clearHooks();

    std::map<std::string, std::uint64_t> counts();
    void clearCounts();

    std::vector<std::string> violations();
    void addViolation(const std::string& text);
    void clearViolations();
    std::int64_t tally(const std::string& name);
    std::map<std::string, std::int64_t> tallies();
    void addToTally(const std::string& name, std::int64_t amount);

 private:
    struct Fault {
        unsigned skip;   ///< calls that still succeed
        unsigned times;  ///< calls that fail after those
        int code;
    };
    struct Function {
        CallPoint* point = nullptr;  ///< null until a front has created it
        std::vector<Fault> faults;
        std::function<void()> hook;
    };
    static void arm(Function& function);
    std::function<void()> hookOf(const std::string& function);

    std::mutex mutex_;
    std::map<std::string, Function> functions_;
    std::vector<std::string> violations_;
    std::map<std::string, std::int64_t> tallies_;
};

}  // namespace simbus
