#include "Replayer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace simbus::replay {

namespace {

template <class Container>
std::string hexOf(const Container& bytes, std::size_t most) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size() && i < most; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%s%02X", i == 0 ? "" : " ", bytes[i]);
        text += digits;
    }
    return bytes.size() > most ? text + " ..." : text;
}

std::string nameOf(std::uint8_t endpoint) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", endpoint);
    return text;
}

std::set<std::uint8_t> hidEndpoints(const RecordedDevice& device) {
    constexpr std::uint8_t kHidClass = 3;
    std::set<std::uint8_t> found;
    for (const EndpointPlace& each : endpointsOf(device)) {
        if (each.interfaceClass == kHidClass) {
            found.insert(each.address);
        }
    }
    return found;
}

}  // namespace

Replayer::Replayer(const RecordedDevice& device, std::function<void(const std::string&)> say)
    : say_(std::move(say)), reportStreams_(hidEndpoints(device)) {
    for (const Exchange& exchange : device.exchanges) {
        if (exchange.kind == Kind::control) {
            requests_[exchange.setup].push_back(&exchange);
        } else {
            endpoints_[exchange.endpoint].push_back(&exchange);
        }
    }
}

std::vector<Answer> Replayer::control(std::uint64_t request, const SetupBytes& setup, const Bytes& sent) {
    return answer(request, requests_[setup], sent, "the request " + hexOf(setup, setup.size()));
}

std::vector<Answer> Replayer::out(std::uint64_t request, std::uint8_t endpoint, const Bytes& sent) {
    return answer(request, endpoints_[endpoint], sent, "a write to endpoint " + nameOf(endpoint));
}

/// The next exchange in which the same was sent; those before it have not been asked for, and will not be.
std::vector<Answer> Replayer::answer(std::uint64_t request, Queue& queue, const Bytes& sent,
                                     const std::string& what) {
    constexpr std::size_t kMostShown = 32;
    const auto found =
        std::find_if(queue.begin(), queue.end(), [&](const Exchange* each) { return each->sent == sent; });
    if (found == queue.end()) {
        say_(what + (sent.empty() ? "" : " with " + hexOf(sent, kMostShown)) +
             (queue.empty() ? " is not in the recording any more: stalled"
                            : " is not in the recording: stalled"));
        return {{request, Exchange::End::stall, {}}};
    }
    const Exchange& exchange = **found;
    queue.erase(queue.begin(), found + 1);
    // One that the program leaves out does not hold up what came after it.
    hostBegun_ = std::max(hostBegun_, exchange.after);
    ++replayed_;
    std::vector<Answer> answers = {{request, exchange.end, exchange.answered}};
    answerWaiting(answers);
    return answers;
}

std::vector<Answer> Replayer::in(std::uint64_t request, std::uint8_t endpoint) {
    Queue& queue = endpoints_[endpoint];
    if (queue.empty()) {
        // The system reads input reports all the time, also where the recorded program had enough of them.
        if (reportStreams_.count(endpoint) != 0) {
            return {{request, Exchange::End::silent, {}}};
        }
        if (saidEnd_.insert(endpoint).second) {
            say_("a read from endpoint " + nameOf(endpoint) + " is not in the recording any more: stalled");
        }
        return {{request, Exchange::End::stall, {}}};
    }
    waiting_[request] = queue.front();
    queue.pop_front();
    std::vector<Answer> answers;
    answerWaiting(answers);
    return answers;
}

/// Answers the reads before which everything has happened that had happened in the recording.
void Replayer::answerWaiting(std::vector<Answer>& answers) {
    for (auto each = waiting_.begin(); each != waiting_.end();) {
        const Exchange& exchange = *each->second;
        if (exchange.after > hostBegun_) {
            ++each;
            continue;
        }
        answers.push_back({each->first, exchange.end, exchange.answered});
        ++replayed_;
        each = waiting_.erase(each);
    }
}

void Replayer::cancelled(std::uint64_t request) {
    const auto found = waiting_.find(request);
    if (found == waiting_.end()) {
        return;
    }
    // What the device would have sent is still there for the next read.
    if (found->second->end != Exchange::End::silent) {
        endpoints_[found->second->endpoint].push_front(found->second);
    }
    waiting_.erase(found);
}

}  // namespace simbus::replay
