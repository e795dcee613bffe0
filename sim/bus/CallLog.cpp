#include "CallLog.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace simbus {

using Lock = std::unique_lock<std::mutex>;

CallPoint::CallPoint(const char* name) : name_(name) {
    CallLog::instance().add(*this);
}

std::optional<int> CallPoint::enterArmed() {
    return CallLog::instance().enter(*this);
}

CallLog& CallLog::instance() {
    static auto* const log = new CallLog;  // never freed: calls may come until the process has ended
    return *log;
}

void CallLog::arm(Function& function) {
    if (function.point != nullptr) {
        function.point->armed_.store(function.hook || !function.faults.empty(), std::memory_order_release);
    }
}

void CallLog::add(CallPoint& point) {
    const Lock lock(mutex_);
    Function& function = functions_[point.name_];
    function.point = &point;
    arm(function);
}

std::function<void()> CallLog::hookOf(const std::string& function) {
    const Lock lock(mutex_);
    return functions_[function].hook;
}

std::optional<int> CallLog::enter(const CallPoint& point) {
    if (const auto hook = hookOf(point.name_); hook) {
        hook();
    }
    const Lock lock(mutex_);
    Function& function = functions_[point.name_];
    std::optional<int> code;
    for (Fault& fault : function.faults) {
        if (fault.skip != 0) {
            --fault.skip;
        } else if (!code) {
            --fault.times;
            code = fault.code;
        }
    }
    auto& faults = function.faults;
    faults.erase(
        std::remove_if(faults.begin(), faults.end(), [](const Fault& fault) { return fault.times == 0; }),
        faults.end());
    arm(function);
    return code;
}

void CallLog::fail(const std::string& function, unsigned nth, int code, unsigned times) {
    if (nth == 0 || times == 0) {
        throw std::runtime_error("\"nth\" and \"times\" count from 1");
    }
    const Lock lock(mutex_);
    Function& target = functions_[function];
    target.faults.push_back({nth - 1, times, code});
    arm(target);
}

void CallLog::clearFaults() {
    const Lock lock(mutex_);
    for (auto& [name, function] : functions_) {
        function.faults.clear();
        arm(function);
    }
}

void CallLog::hook(const std::string& function, std::function<void()> hook) {
    const Lock lock(mutex_);
    Function& target = functions_[function];
    target.hook = std::move(hook);
    arm(target);
}

void CallLog::clearHooks() {
    const Lock lock(mutex_);
    for (auto& [name, function] : functions_) {
        function.hook = nullptr;
        arm(function);
    }
}

std::map<std::string, std::uint64_t> CallLog::counts() {
    const Lock lock(mutex_);
    std::map<std::string, std::uint64_t> counts;
    for (const auto& [name, function] : functions_) {
        const auto count =
            function.point == nullptr ? 0 : function.point->count_.load(std::memory_order_relaxed);
        if (count != 0) {
            counts[name] = count;
        }
    }
    return counts;
}

void CallLog::clearCounts() {
    const Lock lock(mutex_);
    for (const auto& [name, function] : functions_) {
        if (function.point != nullptr) {
            function.point->count_.store(0, std::memory_order_relaxed);
        }
    }
}

std::vector<std::string> CallLog::violations() {
    const Lock lock(mutex_);
    return violations_;
}

void CallLog::addViolation(const std::string& text) {
    constexpr std::size_t kMost = 1000;
    const Lock lock(mutex_);
    if (violations_.size() < kMost) {
        violations_.push_back(text);
    }
}

void CallLog::clearViolations() {
    const Lock lock(mutex_);
    violations_.clear();
}

std::int64_t CallLog::tally(const std::string& name) {
    const Lock lock(mutex_);
    const auto found = tallies_.find(name);
    return found == tallies_.end() ? 0 : found->second;
}

std::map<std::string, std::int64_t> CallLog::tallies() {
    const Lock lock(mutex_);
    return tallies_;
}

void CallLog::addToTally(const std::string& name, std::int64_t amount) {
    const Lock lock(mutex_);
    tallies_[name] += amount;
}

}  // namespace simbus
