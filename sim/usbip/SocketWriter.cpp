#include "SocketWriter.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "SocketBytes.h"

namespace simbus::usbip {

void SocketWriter::send(Bytes message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (stopped_) {
        return;
    }
    if (waiting_.empty()) {
        // Most messages fit into the socket, and then need no other thread.
        const ssize_t sent = ::send(socket_, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        message.erase(message.begin(), message.begin() + std::max<ssize_t>(sent, 0));
        if (message.empty()) {
            return;
        }
    }
    unsent_ += message.size();
    waiting_.push_back(std::move(message));
    changed_.notify_all();
}

std::size_t SocketWriter::unsent() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return unsent_;
}

void SocketWriter::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        changed_.wait(lock, [&] { return stopped_ || !waiting_.empty(); });
        if (stopped_) {
            return;
        }
        const Bytes& first = waiting_.front();  // stays in place while others are added behind it
        lock.unlock();
        sendWhole(socket_, first.data(), first.size());
        lock.lock();
        unsent_ -= first.size();
        waiting_.pop_front();
    }
}

void SocketWriter::stop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

}  // namespace simbus::usbip
