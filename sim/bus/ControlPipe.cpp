// The answers of a plugged device on its control pipe: first those of the scenario, then those that every
// device must give, then those of its program.
#include <algorithm>
#include <utility>

#include "DescriptorTypes.h"
#include "PluggedDevice.h"

namespace simbus {

namespace {

constexpr std::uint8_t recipient(const Setup& setup) {
    return setup.requestType & 0x1FU;
}
constexpr std::uint8_t lowByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint8_t highByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8U);
}

enum Recipient : std::uint8_t { toDevice = 0, toInterface = 1, toEndpoint = 2 };

enum Request : std::uint8_t {
    getStatus = 0,
    clearFeature = 1,
    setFeatureRequest = 3,
    setAddress = 5,
    getDescriptor = 6,
    getConfiguration = 8,
    setConfigurationRequest = 9,
    getInterface = 10,
    setInterface = 11
};

constexpr std::uint8_t kClassToInterface = 0x21;
enum HidRequest : std::uint8_t { setReport = 9, setIdle = 10, setProtocol = 11 };

}  // namespace

std::optional<Status> PluggedDevice::answerControl(Transfer& transfer) {
    const Setup& setup = transfer.setup;
    Bytes reply;
    const Rule* rule = memory_.find(model_.control, transfer, setup.length);
    const auto status = rule != nullptr ? obey(*rule, transfer, reply) : answerItself(transfer, reply);
    if (status == Status::completed) {
        const bool in = (setup.requestType & 0x80U) != 0;
        transfer.actual = in ? std::min<std::size_t>(reply.size(), setup.length) : setup.length;
        if (in) {
            std::copy_n(reply.begin(), transfer.actual, transfer.data);
        }
    }
    return status;
}

std::optional<Status> PluggedDevice::askProgram(const Transfer& transfer, Bytes& reply) {
    auto answer = program_.ask(transfer, transfer.setup.length);
    if (!answer) {
        return std::nullopt;
    }
    reply = std::move(answer->data);
    return answer->status;
}

std::optional<Status> PluggedDevice::answerItself(const Transfer& transfer, Bytes& reply) {
    const bool standard = (transfer.setup.requestType & 0x60U) == 0;
    const Status status = standard ? answerStandard(transfer.setup, reply) : answerHidClass(transfer.setup);
    return status == Status::stall ? askProgram(transfer, reply) : status;
}

std::optional<Status> PluggedDevice::obey(const Rule& rule, Transfer& transfer, Bytes& reply) {
    if (rule.silent || agenda_.postpone(transfer, rule.delayMs)) {
        return std::nullopt;
    }
    std::optional<Status> status = rule.stall ? Status::stall : Status::completed;
    if (rule.program) {
        status = askProgram(transfer, reply);
    }
    if (status) {
        reply = applyRule(rule, transfer, transfer.setup.length).value_or(reply);
    }
    return status;
}

Status PluggedDevice::answerStandard(const Setup& setup, Bytes& reply) {
    switch (setup.request) {
        case getStatus:
            return report(setup, reply);
        case clearFeature:
            return setFeature(setup, false);
        case setFeatureRequest:
            return setFeature(setup, true);
        case setAddress:
            return Status::completed;
        case getDescriptor:
            return recipient(setup) == toDevice ? describe(setup, reply) : describeHid(setup, reply);
        case getConfiguration:
            reply = {configuration()};
            return Status::completed;
        case setConfigurationRequest:
            return setConfiguration(lowByte(setup.value));
        case getInterface:
            if (const auto setting = alternate(lowByte(setup.index)); setting) {
                reply = {*setting};
                return Status::completed;
            }
            return Status::stall;
        case setInterface:
            return setAlternate(lowByte(setup.index), lowByte(setup.value));
        default:
            return Status::stall;
    }
}

Status PluggedDevice::describe(const Setup& setup, Bytes& reply) const {
    const std::uint8_t index = lowByte(setup.value);
    switch (highByte(setup.value)) {
        case deviceType:
            reply = info_->deviceDescriptor;
            return Status::completed;
        case configurationType:
            if (index < info_->configurationDescriptors.size()) {
                reply = info_->configurationDescriptors[index];
                return Status::completed;
            }
            return Status::stall;
        case stringType:
            if (const auto text = model_.strings.find(index); text != model_.strings.end()) {
                reply = text->second;
                return Status::completed;
            }
            return Status::stall;
        default:
            return Status::stall;
    }
}

const HidModel* PluggedDevice::hidOf(const Setup& setup) const {
    const auto number = lowByte(setup.index);
    const InterfaceModel* found = recipient(setup) == toInterface ? interface(number, 0) : nullptr;
    return found != nullptr && found->hid ? &*found->hid : nullptr;
}

Status PluggedDevice::describeHid(const Setup& setup, Bytes& reply) const {
    const HidModel* hid = hidOf(setup);
    const std::uint8_t type = highByte(setup.value);
    if (hid == nullptr || (type != hidType && type != reportType)) {
        return Status::stall;
    }
    reply = type == hidType ? hidDescriptor(*hid) : reportDescriptor(*hid);
    return Status::completed;
}

/// Output reports on the control pipe are accepted and dropped; a control rule can keep them.
Status PluggedDevice::answerHidClass(const Setup& setup) const {
    const bool known = setup.request == setReport || setup.request == setIdle || setup.request == setProtocol;
    const bool addressed = setup.requestType == kClassToInterface && hidOf(setup) != nullptr;
    return known && addressed ? Status::completed : Status::stall;
}

Status PluggedDevice::report(const Setup& setup, Bytes& reply) {
    std::uint8_t state = 0;
    if (recipient(setup) == toDevice) {
        const bool selfPowered = configuration_ != nullptr && (configuration_->attributes & 0x40U) != 0;
        state = selfPowered ? 1 : 0;
    } else if (recipient(setup) == toEndpoint) {
        const Endpoint* asked = endpoint(lowByte(setup.index));
        if (asked == nullptr) {
            return Status::stall;
        }
        state = asked->halted() ? 1 : 0;
    }
    reply = {state, 0};
    return Status::completed;
}

Status PluggedDevice::setFeature(const Setup& setup, bool on) {
    if (recipient(setup) != toEndpoint) {
        return recipient(setup) == toDevice ? Status::completed
                                            : Status::stall;  // remote wake-up: nothing to do
    }
    Endpoint* target = endpoint(lowByte(setup.index));
    if (target == nullptr || lowByte(setup.index) == 0) {
        return target == nullptr ? Status::stall : Status::completed;
    }
    target->setHalted(on);
    return Status::completed;
}

}  // namespace simbus
