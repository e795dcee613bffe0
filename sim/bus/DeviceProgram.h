// The program that answers for a device over the control socket, if there is one: what it is told, what it is
// asked, and why it does not answer any more. Belongs to a device of the bus, plugged in or not. Guarded by
// the lock of the bus; the program is told by the agenda, with no lock held.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Agenda.h"
#include "ControlSocket.h"
#include "Json.h"

namespace simbus {

class DeviceProgram {
 public:
    struct Answer {
        Status status = Status::stall;  ///< completed or stall
        Bytes data;                     ///< for the host
    };

    explicit DeviceProgram(Agenda& agenda) : agenda_(agenda) {}

    /// From now on `client`, which can be sent lines with `tell`, answers, each time within `deadlineMs`.
    /// Throws std::runtime_error when another client does.
    void begin(const void* client, ControlSocket::Tell tell, std::uint32_t deadlineMs);
    /// The program does not answer any more; what waits for it stalls soon. Does nothing when there is none.
    void end(const std::string& why);
    bool answers() const { return client_ != nullptr; }
    bool isOf(const void* client) const { return client_ == client; }
    /// Why it does not answer any more; empty when it does, and when there has been none.
    const std::string& whyNot() const { return whyNot_; }

    /// Whether the request of that number has neither been answered nor ended.
    bool isAsked(std::int64_t number) const;

    /// Sends an event, if there is a program.
    void tell(const Json& event);
    /// Takes the answer to a request. One that comes too late, because the transfer has ended, is ignored.
    /// One that makes no sense throws std::runtime_error, and the caller ends the program.
    void take(const Json& reply);

    /// Asks for the first `length` bytes of a transfer, the same question every time. Empty while there is no
    /// answer; the bus wakes up when the time for it is over. Without a program the answer is a stall.
    std::optional<Answer> ask(const Transfer& transfer, std::size_t length);
    /// Closes the question: the transfer was fed, or has ended. In the latter case the program is told.
    void drop(const Transfer& transfer);
    void cancel(const Transfer& transfer);

 private:
    struct Question {
        std::uint64_t number = 0;
        std::int64_t deadlineNanoseconds = Agenda::kNever;
        std::size_t mostData = 0;  ///< in the answer
        bool silent = false;       ///< the program does not want it to end
        std::optional<Answer> answer;
    };
    void open(const Transfer& transfer, std::size_t length);
    static Answer readAnswer(const Json& reply, const Question& question);

    Agenda& agenda_;
    const void* client_ = nullptr;
    ControlSocket::Tell tell_;
    std::uint32_t deadlineMs_ = 0;
    std::string whyNot_;
    std::uint64_t lastNumber_ = 0;
    std::map<const Transfer*, Question> questions_;  ///< open ones
};

/// The programs of all devices, as the clients of the control socket reach them. Every function takes the
/// lock of the bus; `client` identifies the caller.
class ProgramDesk {
 public:
    virtual ~ProgramDesk() = default;
    /// The requests of the control protocol; they return its answer and throw std::runtime_error.
    virtual Json serve(const Json& request, const void* client, const ControlSocket::Tell& tell) = 0;
    virtual Json reply(const Json& request, const void* client) = 0;
    /// Ends the program that the client is, if it is one.
    virtual void dismiss(const void* client, const std::string& why) = 0;
};

}  // namespace simbus
