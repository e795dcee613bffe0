// Answers for a recorded device: each request as it was answered, in the order that was seen.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Recording.h"

namespace simbus::replay {

/// The answer to one request of the bus.
struct Answer {
    std::uint64_t request = 0;
    Exchange::End end = Exchange::End::completed;  ///< gone: the device leaves the bus
    Bytes data;                                    ///< for the host
};

class Replayer {
 public:
    /// The device has to outlive this. What is not in the recording stalls, and `say` is told.
    Replayer(const RecordedDevice& device, std::function<void(const std::string&)> say);

    /// What the bus asks; each returns the answers to give now, also to earlier requests.
    std::vector<Answer> control(std::uint64_t request, const SetupBytes& setup, const Bytes& sent);
    std::vector<Answer> out(std::uint64_t request, std::uint8_t endpoint, const Bytes& sent);
    /// `length`: the bytes that the host asks for.
    std::vector<Answer> in(std::uint64_t request, std::uint8_t endpoint, std::size_t length);
    void cancelled(std::uint64_t request);

    /// How many of the recorded transfers were asked for.
    std::size_t replayed() const { return replayed_; }

 private:
    using Queue = std::deque<const Exchange*>;
    using Pieces = std::vector<const Exchange*>;  ///< of one transfer, at least one
    struct Read {
        Pieces pieces;
        std::size_t length = 0;  ///< bytes that the host asks for
    };
    static Pieces takeRead(Queue& queue, std::size_t length);
    std::vector<Answer> answer(std::uint64_t request, Queue& queue, const Bytes& sent,
                               const std::string& what);
    void answerWaiting(std::vector<Answer>& answers);

    const std::function<void(const std::string&)> say_;
    std::map<SetupBytes, Queue> requests_;
    std::map<std::uint8_t, Queue> endpoints_;
    std::map<std::uint64_t, Read> waiting_;  ///< IN transfers, for what comes before their answers
    std::set<std::uint8_t> reportStreams_;   ///< endpoints of input reports
    std::set<std::uint8_t> saidEnd_;         ///< endpoints
    std::size_t hostBegun_ = 0;  ///< the highest number of a request or OUT transfer that has come
    std::size_t replayed_ = 0;
};

}  // namespace simbus::replay
