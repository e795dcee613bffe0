// The kernel's queue of one opening's input reports.
#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "Objects.h"

namespace sim {

/// Bounded like the system's: a report that finds the queue full is dropped silently. Thread-safe.
class ReportQueue {
 public:
    /// The smallest queue that the system creates, and its overhead per report, in bytes.
    static constexpr std::size_t kBytes = 16'384;
    static constexpr std::size_t kBytesBeside = 32;

    /// Returns false when the report was dropped. A fault at its call point makes the queue full.
    bool put(simbus::Bytes report) {
        SIM_CALL_POINT("hid report queued");
        const std::lock_guard lock(mutex_);
        if (fault || used_ + sizeOf(report) > kBytes) {
            simbus::Bus::instance().addToTally("hid reports dropped", 1);
            return false;
        }
        used_ += sizeOf(report);
        reports_.push_back(std::move(report));
        return true;
    }

    /// Takes the oldest report; empty when there is none.
    std::optional<simbus::Bytes> take() {
        const std::lock_guard lock(mutex_);
        if (reports_.empty()) {
            return std::nullopt;
        }
        simbus::Bytes report = std::move(reports_.front());
        reports_.pop_front();
        used_ -= sizeOf(report);
        return report;
    }

 private:
    static std::size_t sizeOf(const simbus::Bytes& report) { return report.size() + kBytesBeside; }

    std::mutex mutex_;
    std::deque<simbus::Bytes> reports_;
    std::size_t used_ = 0;
};

}  // namespace sim
