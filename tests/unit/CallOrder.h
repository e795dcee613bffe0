#pragma once

#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bus/Bus.h"

/// Records, for its lifetime, the order in which functions of the drop-in libusb are entered, on any thread.
class CallOrder {
 public:
    CallOrder(simbus::Bus& bus, std::initializer_list<std::string> functions)
        : bus_(bus), functions_(functions) {
        for (const std::string& function : functions_) {
            bus_.onCall(function, [log = log_, function] {
                const std::lock_guard<std::mutex> guard(log->mutex);
                log->entries.push_back(function);
            });
        }
    }
    ~CallOrder() {
        for (const std::string& function : functions_) {
            bus_.onCall(function, {});
        }
    }
    CallOrder(const CallOrder&) = delete;
    CallOrder& operator=(const CallOrder&) = delete;

    std::vector<std::string> seen() const {
        const std::lock_guard<std::mutex> guard(log_->mutex);
        return log_->entries;
    }

 private:
    struct Log {
        std::mutex mutex;
        std::vector<std::string> entries;
    };

    simbus::Bus& bus_;
    std::vector<std::string> functions_;
    std::shared_ptr<Log> log_ = std::make_shared<Log>();  // a hook may still run after it was removed
};
