// One client of the control socket: it sends requests of the control protocol, and may use the bus as a host
// does, or answer for a device.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Bus.h"
#include "ControlSocket.h"
#include "DeviceProgram.h"
#include "Json.h"

namespace simbus {

class HostSession : public std::enable_shared_from_this<HostSession> {
 public:
    HostSession(Bus& bus, ProgramDesk& programs, ControlSocket::Tell tell)
        : bus_(bus), programs_(programs), tell_(std::move(tell)) {}

    /// Executes one request; as Bus::command(), which executes those that are not a host's. On the thread of
    /// the control socket.
    std::string answer(const std::string& line);

    /// The client is gone: ends what it has begun and not ended. No other function is called after this one.
    void end();

 private:
    struct Waiting {
        Transfer transfer;
        Bytes data;
    };
    using Operation = Json (HostSession::*)(const Json&);
    static const std::map<std::string, Operation>& operations();

    Json connections(const Json& request);
    Json subscribe(const Json& request);
    Json submit(const Json& request);
    Json cancel(const Json& request);
    Json setConfiguration(const Json& request);
    Json setAlternate(const Json& request);
    Json clearHalt(const Json& request);
    Json resetDevice(const Json& request);
    Json configuration(const Json& request);
    Json alternate(const Json& request);
    Json endpointOf(const Json& request);
    Json claim(const Json& request);
    Json release(const Json& request);
    Json setDriver(const Json& request);
    Json hasDriver(const Json& request);
    Json serve(const Json& request);
    Json reply(const Json& request);

    void ended(std::uint64_t number);

    Bus& bus_;
    ProgramDesk& programs_;
    const ControlSocket::Tell tell_;
    int subscription_ = 0;
    std::mutex mutex_;
    std::map<std::uint64_t, std::shared_ptr<Waiting>> waiting_;  ///< by the client's number
};

}  // namespace simbus
