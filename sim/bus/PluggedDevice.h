// A device from its plug to its unplug: configuration, active endpoints, control pipe. Guarded by the lock of
// the bus.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "Endpoint.h"

namespace simbus {

class PluggedDevice : public Endpoint::Device {
 public:
    /// `hub` is null at the root.
    PluggedDevice(DeviceModel model, ConnectionId connection, std::uint8_t address, const DeviceInfo* hub,
                  Agenda& agenda, DeviceProgram& program);
    PluggedDevice(const PluggedDevice&) = delete;
    PluggedDevice& operator=(const PluggedDevice&) = delete;

    const DeviceInfoPtr& info() const { return info_; }

    /// The endpoint of the active setting; null when there is none. 0x00 and 0x80 are the control pipe.
    Endpoint* endpoint(std::uint8_t address);
    Received& received(std::uint8_t address) override;

    Status setConfiguration(std::uint8_t value);
    Status setAlternate(std::uint8_t interfaceNumber, std::uint8_t alternate);
    std::uint8_t configuration() const { return configuration_ == nullptr ? 0 : configuration_->value; }
    std::optional<std::uint8_t> alternate(std::uint8_t interfaceNumber) const;
    Status setDriver(std::uint8_t interfaceNumber, bool attached);
    bool hasDriver(std::uint8_t interfaceNumber) const;
    /// True when neither the configuration nor an alternate setting has changed since the plug.
    bool asPlugged() const;
    const std::string& state() const { return memory_.state(); }  ///< of its rules

    void adoptBehaviours(const DeviceModel& changed);
    void reset();       ///< performs a bus reset
    void forgetPast();  ///< drops everything queued, received and remembered by rules; waiting transfers keep
                        ///< waiting
    void finishAll(Status status);
    void service();

 private:
    Agenda& agenda() override { return agenda_; }
    DeviceProgram& program() override { return program_; }
    void feed(std::uint8_t address, Bytes data, std::int64_t dueNanoseconds) override;
    RuleMemory& memory() override { return memory_; }
    std::optional<Bytes> applyRule(const Rule& rule, const Transfer& transfer, std::size_t length) override;
    std::optional<Status> answerControl(Transfer& transfer) override;

    std::optional<Status> askProgram(const Transfer& transfer, Bytes& reply);
    Status answerStandard(const Setup& setup, Bytes& reply);
    Status describe(const Setup& setup, Bytes& reply) const;
    const HidModel* hidOf(const Setup& setup) const;  ///< of the interface that the request addresses
    Status describeHid(const Setup& setup, Bytes& reply) const;
    Status answerHidClass(const Setup& setup) const;
    Status report(const Setup& setup, Bytes& reply);
    Status setFeature(const Setup& setup, bool on);
    std::optional<Status> obey(const Rule& rule, Transfer& transfer, Bytes& reply);
    std::optional<Status> answerItself(const Transfer& transfer, Bytes& reply);

    const InterfaceModel* interface(std::uint8_t number, std::uint8_t alternate) const;
    void enter(const ConfigurationModel* chosen);
    void dropEndpoints(std::optional<std::uint8_t> ofInterface);
    void raiseEndpoints(const InterfaceModel& interface);

    DeviceModel model_;
    DeviceInfoPtr info_;
    Agenda& agenda_;
    DeviceProgram& program_;
    const ConfigurationModel* configuration_ = nullptr;    ///< null while unconfigured
    std::map<std::uint8_t, std::uint8_t> alternates_;      ///< of the active configuration's interfaces
    std::set<std::uint8_t> detached_;                      ///< HID interfaces without their driver
    std::array<std::unique_ptr<Endpoint>, 32> endpoints_;  ///< OUT 0 to 15, then IN 1 to 15
    std::array<Received, 32> received_;
    RuleMemory memory_;
};

}  // namespace simbus
