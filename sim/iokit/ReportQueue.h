// The kernel's queue of one opening's input reports.
#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "Objects.h"

namespace sim {

// Bounded, as the system's is: a report that finds it full is lost, and nobody is told. Used by two threads.
class ReportQueue {
 public:
    // The smallest queue that the system makes, and what it needs beside the bytes of each report.
    static constexpr std::size_t kBytes = 16'384;
    static constexpr std::size_t kBytesBeside = 32;

    // False when the report was dropped. Its call point makes the queue full at will.
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

    // The oldest report.
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
