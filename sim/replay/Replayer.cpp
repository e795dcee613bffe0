#include "Replayer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace simbus::replay {

namespace {

template <class Container>
std::string hexText(const Container& bytes, std::size_t most) {
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

/// libusb splits longer transfers into pieces of this size on some systems, where a capture of the kernel has
/// a transfer for each.
constexpr std::size_t kPiece = std::size_t{16} * 1024;

/// How many exchanges, from the first one, have sent these data together; 0 when they have not.
template <class Iterator>
std::size_t piecesThatSent(const Bytes& data, Iterator first, Iterator end) {
    std::size_t at = 0;
    for (auto each = first; each != end; ++each) {
        const Exchange& exchange = **each;
        const std::size_t size = exchange.isIn() ? 0 : exchange.length;
        if (size > data.size() - at || !std::equal(exchange.sent.begin(), exchange.sent.end(),
                                                   data.begin() + static_cast<std::ptrdiff_t>(at))) {
            return 0;
        }
        at += size;
        if (at == data.size()) {
            return static_cast<std::size_t>(each - first) + 1;
        }
        if (size != kPiece) {
            return 0;
        }
    }
    return 0;
}

/// Whether the next exchange at an IN endpoint may be the next piece of the same transfer: a piece that came
/// whole is followed by more data. Those that nothing came for any more are cancelled.
bool isNextPiece(const Exchange& piece, const Exchange& next, std::size_t left) {
    const bool isWhole = piece.answered.size() + piece.missing == kPiece;
    return piece.length == kPiece && next.length <= left &&
           ((isWhole && next.end == Exchange::End::completed) ||
            (next.end == Exchange::End::silent && next.answered.empty()));
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
    return answer(request, requests_[setup], sent, "the request " + hexText(setup, setup.size()));
}

std::vector<Answer> Replayer::out(std::uint64_t request, std::uint8_t endpoint, const Bytes& sent) {
    return answer(request, endpoints_[endpoint], sent, "a write to endpoint " + nameOf(endpoint));
}

/// The next exchange in which the same was sent; those before it have not been asked for, and will not be.
std::vector<Answer> Replayer::answer(std::uint64_t request, Queue& queue, const Bytes& sent,
                                     const std::string& what) {
    constexpr std::size_t kMostShown = 32;
    std::size_t pieces = 0;
    auto found = queue.begin();
    while (found != queue.end() && (pieces = piecesThatSent(sent, found, queue.end())) == 0) {
        ++found;
    }
    if (found == queue.end()) {
        say_(what + (sent.empty() ? "" : " with " + hexText(sent, kMostShown)) +
             (queue.empty() ? " is not in the recording any more: stalled"
                            : " is not in the recording: stalled"));
        return {{request, Exchange::End::stall, {}}};
    }
    found += static_cast<std::ptrdiff_t>(pieces);
    const Exchange& exchange = **(found - 1);
    queue.erase(queue.begin(), found);
    // One that the program leaves out does not hold up what came after it.
    hostBegun_ = std::max(hostBegun_, exchange.after);
    replayed_ += pieces;
    std::vector<Answer> answers = {{request, exchange.end, answerOf(exchange, askedBy(exchange.setup))}};
    answerWaiting(answers);
    return answers;
}

std::vector<Answer> Replayer::in(std::uint64_t request, std::uint8_t endpoint, std::size_t length) {
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
    waiting_[request] = {takeRead(queue, length), length};
    std::vector<Answer> answers;
    answerWaiting(answers);
    return answers;
}

/// The next read of the recording, which is there; with all pieces of it.
Replayer::Pieces Replayer::takeRead(Queue& queue, std::size_t length) {
    Pieces pieces;
    do {
        pieces.push_back(queue.front());
        queue.pop_front();
        length -= std::min(length, pieces.back()->length);
    } while (length > 0 && !queue.empty() && isNextPiece(*pieces.back(), *queue.front(), length));
    return pieces;
}

/// Answers the reads before which everything has happened that had happened in the recording.
void Replayer::answerWaiting(std::vector<Answer>& answers) {
    for (auto each = waiting_.begin(); each != waiting_.end();) {
        const auto& [pieces, length] = each->second;
        if (std::any_of(pieces.begin(), pieces.end(),
                        [this](const Exchange* piece) { return piece->after > hostBegun_; })) {
            ++each;
            continue;
        }
        Answer& answer = answers.emplace_back(Answer{each->first, pieces.front()->end, {}});
        for (const Exchange* piece : pieces) {
            const Bytes data = answerOf(*piece, length - std::min(length, answer.data.size()));
            answer.data.insert(answer.data.end(), data.begin(), data.end());
        }
        replayed_ += pieces.size();
        each = waiting_.erase(each);
    }
}

void Replayer::cancelled(std::uint64_t request) {
    const auto found = waiting_.find(request);
    if (found == waiting_.end()) {
        return;
    }
    // What the device would have sent is still there for the next read.
    const Pieces& pieces = found->second.pieces;
    if (pieces.front()->end != Exchange::End::silent) {
        Queue& queue = endpoints_[pieces.front()->endpoint];
        queue.insert(queue.begin(), pieces.begin(), pieces.end());
    }
    waiting_.erase(found);
}

}  // namespace simbus::replay
