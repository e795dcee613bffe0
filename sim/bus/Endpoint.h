// One endpoint of a plugged device: the transfers that wait on it and the bytes that pass through it. Guarded
// by the lock of the bus.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <utility>

#include "Agenda.h"
#include "DeviceModel.h"
#include "DeviceProgram.h"

namespace simbus {

/// The bytes of the OUT transfers of one endpoint address since the plug. Bounded, because a program may
/// write for days.
class Received {
 public:
    void add(const std::uint8_t* data, std::size_t length);
    void clear();
    std::vector<Bytes> all() const { return {packets_.begin(), packets_.end()}; }

 private:
    std::deque<Bytes> packets_;
    std::size_t bytes_ = 0;
};

class Endpoint {
 public:
    /// What the endpoint needs from its device.
    class Device {
     public:
        virtual ~Device() = default;
        virtual Agenda& agenda() = 0;
        virtual DeviceProgram& program() = 0;
        virtual Received& received(std::uint8_t address) = 0;
        virtual void feed(std::uint8_t address, Bytes data, std::int64_t dueNanoseconds) = 0;
        virtual RuleMemory& memory() = 0;
        /// RuleMemory::apply(), which other transfers may wait for.
        virtual std::optional<Bytes> applyRule(const Rule& rule, const Transfer& transfer,
                                               std::size_t length) = 0;
        /// Empty while the request has not been answered.
        virtual std::optional<Status> answerControl(Transfer& transfer) = 0;
    };

    Endpoint(Device& device, EndpointModel model, std::uint8_t interfaceNumber)
        : device_(device), model_(std::move(model)), interfaceNumber_(interfaceNumber) {}

    const EndpointModel& model() const { return model_; }
    std::uint8_t interfaceNumber() const { return interfaceNumber_; }
    std::size_t waiting() const { return waiting_.size(); }
    bool halted() const { return halted_ || model_.behaviour.kind == Behaviour::Kind::stall; }

    void submit(Transfer& transfer);
    bool cancel(Transfer& transfer);                         ///< false when it is not waiting here
    void feed(Bytes data, std::int64_t dueNanoseconds = 0);  ///< it can be read from then on
    void setBehaviour(const Behaviour& behaviour);
    void setHalted(bool halted);
    void finishAll(Status status);
    void forget();   ///< drops what is queued, and clears the halt
    void service();  ///< completes the transfers that can complete now

 private:
    /// One write or feed, read packet by packet; an empty one is a zero-length packet.
    struct Chunk {
        Bytes bytes;
        std::size_t at = 0;
        std::int64_t dueNanoseconds = 0;
    };

    void end(Transfer& transfer, Status status);
    bool serviceOne();
    bool move(Transfer& transfer);  ///< true when the transfer has ended and its status is set
    bool moveOut(Transfer& transfer, std::size_t length);
    bool moveIn(Transfer& transfer, std::size_t wanted);
    bool obey(const Rule& rule, Transfer& transfer, std::size_t length);
    void take(Transfer& transfer, std::size_t length);
    bool giveToProgram(Transfer& transfer, std::size_t length);
    bool canRead();
    bool fillFromProgram(Transfer& transfer, std::size_t wanted);
    std::optional<DeviceProgram::Answer> askProgram(Transfer& transfer, std::size_t length);
    void takePacket(Transfer& transfer, std::size_t wanted);
    void fillFromSource(Transfer& transfer, std::size_t wanted);
    std::size_t allowed(const Transfer& transfer) const;

    Device& device_;
    EndpointModel model_;
    std::uint8_t interfaceNumber_;
    std::deque<Transfer*> waiting_;
    std::deque<Chunk> queue_;
    std::uint8_t nextSourceByte_ = 0;
    bool halted_ = false;
    bool inService_ = false;
};

}  // namespace simbus
