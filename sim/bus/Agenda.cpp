#include "Agenda.h"

#include <utility>

namespace simbus {

void Agenda::complete(Transfer& transfer, Status status) {
    transfer.status = status;
    add({&transfer, nullptr, nullptr, false});
}

void Agenda::tell(DeviceInfoPtr device, bool arrived) {
    add({nullptr, nullptr, std::move(device), arrived});
}

void Agenda::call(std::function<void()> other) {
    add({nullptr, std::move(other), nullptr, false});
}

void Agenda::add(Call call) {
    calls_.push_back(std::move(call));
    ++added_;
}

void Agenda::wakeAt(std::int64_t nanoseconds) {
    if (nanoseconds < nextWake_) {
        nextWake_ = nanoseconds;
        wakeChanged_.notify_all();
    }
}

bool Agenda::postpone(Transfer& transfer, std::uint32_t delayMs) {
    if (delayMs == 0 || transfer.postponed) {
        return false;
    }
    transfer.postponed = true;
    transfer.dueNanoseconds = afterMilliseconds(delayMs);
    wakeAt(transfer.dueNanoseconds);
    return true;
}

int Agenda::subscribe(Bus::Subscriber subscriber) {
    subscribers_.emplace(nextSubscription_, std::move(subscriber));
    return nextSubscription_++;
}

void Agenda::deliver(std::unique_lock<std::mutex>& lock) {
    if (maker_ != std::thread::id()) {
        return;
    }
    maker_ = std::this_thread::get_id();
    while (!calls_.empty()) {
        const Call call = std::move(calls_.front());
        calls_.pop_front();
        make(call, lock);
        ++made_;
    }
    maker_ = std::thread::id();
    madeOne_.notify_all();
}

void Agenda::make(const Call& call, std::unique_lock<std::mutex>& lock) {
    if (call.device == nullptr) {
        lock.unlock();
        call.transfer != nullptr ? call.transfer->done() : call.other();
        lock.lock();
        return;
    }
    const auto subscribers = subscribers_;
    lock.unlock();
    for (const auto& [number, subscriber] : subscribers) {
        subscriber(call.device, call.arrived);
    }
    lock.lock();
}

void Agenda::settle(std::unique_lock<std::mutex>& lock) {
    const std::uint64_t due = added_;
    deliver(lock);
    madeOne_.wait(lock, [&] { return made_ >= due || maker_ == std::this_thread::get_id(); });
}

}  // namespace simbus
