#include "PluggedDevice.h"

#include <algorithm>
#include <utility>

namespace simbus {

namespace {

std::size_t slotOf(std::uint8_t address) {
    const std::size_t number = address & 0x0FU;
    return number != 0 && (address & 0x80U) != 0 ? number + 16 : number;
}

/// Empty when a HID driver would not bind to the interface: it needs an interrupt IN endpoint.
std::optional<HidInterface> hidInterface(const InterfaceModel& model) {
    if (!model.hid || model.alternate != 0) {
        return std::nullopt;
    }
    HidInterface found;
    found.number = model.number;
    found.inputBytes = model.hid->inputBytes;
    for (const EndpointModel& endpoint : model.endpoints) {
        if (endpoint.type != TransferType::interrupt) {
            continue;
        }
        if (!endpoint.isIn()) {
            found.outEndpoint = endpoint.address;
        } else if (found.inEndpoint == 0) {
            found.inEndpoint = endpoint.address;
        }
    }
    return found.inEndpoint == 0 ? std::nullopt : std::make_optional(found);
}

std::vector<HidInterface> hidInterfaces(const DeviceModel& model) {
    std::vector<HidInterface> all;
    if (const auto* active = model.configuration(model.activeConfiguration); active != nullptr) {
        for (const InterfaceModel& interface : active->interfaces) {
            if (const auto found = hidInterface(interface); found) {
                all.push_back(*found);
            }
        }
    }
    return all;
}

DeviceInfoPtr makeInfo(const DeviceModel& model, ConnectionId connection, std::uint8_t address,
                       const DeviceInfo* hub) {
    auto info = std::make_shared<DeviceInfo>();
    info->connection = connection;
    info->id = model.id;
    info->serial = model.serial;
    info->speed = model.speed;
    info->busNumber = model.bus;
    info->address = address;
    info->ports.clear();
    if (hub != nullptr) {
        info->busNumber = hub->busNumber;
        info->ports = hub->ports;
        info->hub = hub->connection;
    }
    info->ports.push_back(model.port.value_or(address));
    info->deviceDescriptor = deviceDescriptor(model);
    info->configurationDescriptors = configurationDescriptors(model);
    info->hidInterfaces = hidInterfaces(model);
    info->hostFailures = model.hostFailures;
    return info;
}

}  // namespace

PluggedDevice::PluggedDevice(DeviceModel model, ConnectionId connection, std::uint8_t address,
                             const DeviceInfo* hub, Agenda& agenda, DeviceProgram& program)
    : model_(std::move(model)),
      info_(makeInfo(model_, connection, address, hub)),
      agenda_(agenda),
      program_(program),
      memory_(model_.state) {
    EndpointModel pipe;
    pipe.type = TransferType::control;
    endpoints_[0] = std::make_unique<Endpoint>(*this, pipe, 0);
    enter(model_.configuration(model_.activeConfiguration));
}

bool PluggedDevice::hasDriver(std::uint8_t interfaceNumber) const {
    const auto& all = info_->hidInterfaces;
    return detached_.count(interfaceNumber) == 0 &&
           std::any_of(all.begin(), all.end(),
                       [&](const HidInterface& each) { return each.number == interfaceNumber; });
}

Status PluggedDevice::setDriver(std::uint8_t interfaceNumber, bool attached) {
    if (attached) {
        return detached_.erase(interfaceNumber) == 0 ? Status::stall : Status::completed;
    }
    if (!hasDriver(interfaceNumber)) {
        return Status::stall;
    }
    detached_.insert(interfaceNumber);
    for (const auto& each : endpoints_) {
        if (each != nullptr && each != endpoints_[0] && each->interfaceNumber() == interfaceNumber) {
            each->finishAll(Status::noDevice);
        }
    }
    return Status::completed;
}

Endpoint* PluggedDevice::endpoint(std::uint8_t address) {
    return endpoints_[slotOf(address)].get();
}

Received& PluggedDevice::received(std::uint8_t address) {
    return received_[slotOf(address)];
}

void PluggedDevice::feed(std::uint8_t address, Bytes data, std::int64_t dueNanoseconds) {
    if (Endpoint* target = endpoint(address); target != nullptr) {
        target->feed(std::move(data), dueNanoseconds);
    }
}

std::optional<Bytes> PluggedDevice::applyRule(const Rule& rule, const Transfer& transfer,
                                              std::size_t length) {
    const std::string before = state();
    auto reply = memory_.apply(rule, transfer, length);
    if (state() != before) {
        agenda_.wakeAt(nowNanoseconds());  // transfers at other endpoints may have waited for this state
    }
    return reply;
}

const InterfaceModel* PluggedDevice::interface(std::uint8_t number, std::uint8_t alternate) const {
    if (configuration_ != nullptr) {
        for (const auto& candidate : configuration_->interfaces) {
            if (candidate.number == number && candidate.alternate == alternate) {
                return &candidate;
            }
        }
    }
    return nullptr;
}

void PluggedDevice::dropEndpoints(std::optional<std::uint8_t> ofInterface) {
    for (std::size_t slot = 1; slot < endpoints_.size(); ++slot) {
        auto& endpoint = endpoints_[slot];
        if (endpoint && (!ofInterface || endpoint->interfaceNumber() == *ofInterface)) {
            endpoint->finishAll(Status::cancelled);
            endpoint.reset();
        }
    }
}

void PluggedDevice::raiseEndpoints(const InterfaceModel& interface) {
    alternates_[interface.number] = interface.alternate;
    for (const auto& endpoint : interface.endpoints) {
        endpoints_[slotOf(endpoint.address)] = std::make_unique<Endpoint>(*this, endpoint, interface.number);
    }
}

Status PluggedDevice::setConfiguration(std::uint8_t value) {
    const ConfigurationModel* chosen = model_.configuration(value);
    if (chosen == nullptr && value != 0) {
        return Status::stall;
    }
    enter(chosen);
    program_.tell({{"event", "configuration"}, {"value", configuration()}});
    return Status::completed;
}

void PluggedDevice::enter(const ConfigurationModel* chosen) {
    dropEndpoints(std::nullopt);
    alternates_.clear();
    configuration_ = chosen;
    if (chosen != nullptr) {
        for (const auto& interface : chosen->interfaces) {
            if (interface.alternate == 0) {
                raiseEndpoints(interface);
            }
        }
    }
}

Status PluggedDevice::setAlternate(std::uint8_t interfaceNumber, std::uint8_t alternate) {
    const InterfaceModel* chosen = interface(interfaceNumber, alternate);
    if (chosen == nullptr) {
        return Status::stall;
    }
    dropEndpoints(interfaceNumber);
    raiseEndpoints(*chosen);
    program_.tell({{"event", "alternate"}, {"interface", interfaceNumber}, {"value", alternate}});
    return Status::completed;
}

std::optional<std::uint8_t> PluggedDevice::alternate(std::uint8_t interfaceNumber) const {
    const auto found = alternates_.find(interfaceNumber);
    return found == alternates_.end() ? std::nullopt : std::optional<std::uint8_t>(found->second);
}

bool PluggedDevice::asPlugged() const {
    bool allFirst = configuration() == model_.activeConfiguration;
    for (const auto& [number, alternate] : alternates_) {
        allFirst = allFirst && alternate == 0;
    }
    return allFirst;
}

void PluggedDevice::adoptBehaviours(const DeviceModel& changed) {
    const ConfigurationModel* configuration = changed.configuration(this->configuration());
    if (configuration == nullptr) {
        return;
    }
    for (const auto& interface : configuration->interfaces) {
        if (alternate(interface.number) != interface.alternate) {
            continue;
        }
        for (const auto& endpointModel : interface.endpoints) {
            if (Endpoint* running = endpoint(endpointModel.address); running != nullptr) {
                running->setBehaviour(endpointModel.behaviour);
            }
        }
    }
}

void PluggedDevice::reset() {
    finishAll(Status::cancelled);
    program_.tell({{"event", "reset"}});
    for (auto& endpoint : endpoints_) {
        if (endpoint) {
            endpoint->forget();
        }
    }
}

void PluggedDevice::forgetPast() {
    detached_.clear();
    program_.tell({{"event", "reset"}});
    for (auto& endpoint : endpoints_) {
        if (endpoint) {
            endpoint->forget();
        }
    }
    memory_ = RuleMemory(model_.state);
    for (auto& received : received_) {
        received.clear();
    }
}

void PluggedDevice::finishAll(Status status) {
    for (auto& endpoint : endpoints_) {
        if (endpoint) {
            endpoint->finishAll(status);
        }
    }
}

void PluggedDevice::service() {
    for (auto& endpoint : endpoints_) {
        if (endpoint) {
            endpoint->service();
        }
    }
}

}  // namespace simbus
