#include "DeviceProgram.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "BusParts.h"
#include "HostMessages.h"

namespace simbus {

namespace {

constexpr std::uint32_t kDeadlineMs = 5000;

bool isControl(const Transfer& transfer) {
    return (transfer.endpoint & 0x0FU) == 0;
}

Json eventOf(const Transfer& transfer, std::size_t length) {
    Json event = {{"event", isControl(transfer) ? "control" : isIn(transfer) ? "in" : "out"}};
    if (isControl(transfer)) {
        event["setup"] = hexOf(toBytes(transfer.setup));
    } else {
        event["address"] = transfer.endpoint;
    }
    if (!isIn(transfer)) {
        event["data"] = hexOf(Bytes(transfer.data, transfer.data + length));
    } else if (!isControl(transfer)) {
        event["length"] = length;
    }
    return event;
}

}  // namespace

void DeviceProgram::begin(const void* client, ControlSocket::Tell tell, std::uint32_t deadlineMs) {
    if (answers()) {
        throw std::runtime_error("another program answers for this device");
    }
    client_ = client;
    tell_ = std::move(tell);
    deadlineMs_ = deadlineMs;
    whyNot_.clear();
    lastNumber_ = 0;
}

void DeviceProgram::end(const std::string& why) {
    if (!answers()) {
        return;
    }
    tell({{"event", "dismissed"}, {"error", why}});
    client_ = nullptr;
    tell_ = nullptr;
    whyNot_ = why;
    questions_.clear();
    agenda_.wakeAt(nowNanoseconds());
}

void DeviceProgram::tell(const Json& event) {
    if (answers()) {
        agenda_.call([tell = tell_, line = lineOf(event)] { tell(line); });
    }
}

std::optional<DeviceProgram::Answer> DeviceProgram::ask(const Transfer& transfer, std::size_t length) {
    if (!answers()) {
        return Answer{};
    }
    const auto found = questions_.find(&transfer);
    if (found == questions_.end()) {
        open(transfer, length);
        return std::nullopt;
    }
    Question& question = found->second;
    if (question.answer) {
        Answer answer = std::move(*question.answer);
        questions_.erase(found);
        return answer;
    }
    if (question.silent || question.deadlineNanoseconds == Agenda::kNever) {
        return std::nullopt;
    }
    if (question.deadlineNanoseconds <= nowNanoseconds()) {
        end("no answer within " + std::to_string(deadlineMs_) + " ms");
        return Answer{};
    }
    agenda_.wakeAt(question.deadlineNanoseconds);
    return std::nullopt;
}

void DeviceProgram::open(const Transfer& transfer, std::size_t length) {
    Question& question = questions_[&transfer];
    question.number = ++lastNumber_;
    // A device may have nothing to send for long.
    const bool mayWait = isIn(transfer) && !isControl(transfer);
    if (mayWait) {
        question.mostData = std::numeric_limits<std::size_t>::max();
    } else {
        question.mostData = isIn(transfer) ? length : 0;
        question.deadlineNanoseconds = nowNanoseconds() + std::int64_t{deadlineMs_} * 1'000'000;
        agenda_.wakeAt(question.deadlineNanoseconds);
    }
    Json event = eventOf(transfer, length);
    event["request"] = question.number;
    tell(event);
}

void DeviceProgram::drop(const Transfer& transfer) {
    questions_.erase(&transfer);
}

void DeviceProgram::cancel(const Transfer& transfer) {
    const auto found = questions_.find(&transfer);
    if (found != questions_.end()) {
        tell({{"event", "cancelled"}, {"request", found->second.number}});
        questions_.erase(found);
    }
}

bool DeviceProgram::isAsked(std::int64_t number) const {
    return std::any_of(questions_.begin(), questions_.end(), [&](const auto& each) {
        return each.second.number == static_cast<std::uint64_t>(number);
    });
}

void DeviceProgram::take(const Json& reply) {
    const auto number = optionalNumber<std::int64_t>(reply, "request").value_or(0);
    if (number < 1 || static_cast<std::uint64_t>(number) > lastNumber_) {
        throw std::runtime_error("there was no such request");
    }
    const auto found = std::find_if(questions_.begin(), questions_.end(), [&](const auto& each) {
        return each.second.number == static_cast<std::uint64_t>(number);
    });
    if (found == questions_.end()) {
        return;
    }
    Question& question = found->second;
    const Answer answer = readAnswer(reply, question);
    question.silent = flagOf(reply, "silent", false);
    if (!question.silent) {
        question.answer = answer;
    }
}

DeviceProgram::Answer DeviceProgram::readAnswer(const Json& reply, const Question& question) {
    Answer answer{flagOf(reply, "stall", false) ? Status::stall : Status::completed, bytesOf(reply, "data")};
    if (answer.data.size() > question.mostData) {
        throw std::runtime_error("\"data\" has " + std::to_string(answer.data.size()) +
                                 " bytes, and the request takes " + std::to_string(question.mostData));
    }
    return answer;
}

BusDevice* Bus::Parts::servedBy(const void* client) {
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [&](const BusDevice& device) { return device.program->isOf(client); });
    return found == devices.end() ? nullptr : &*found;
}

Json Bus::Parts::serve(const Json& request, const void* client, const ControlSocket::Tell& tell) {
    const std::lock_guard<std::mutex> lock(mutex);
    BusDevice& device = find(textOf(request, "device"));
    if (const BusDevice* served = servedBy(client); served != nullptr) {
        throw std::runtime_error("this connection already answers for " + served->model.id);
    }
    device.program->begin(client, tell, numberOf<std::uint32_t>(request, "deadlineMs", kDeadlineMs));
    return {{"plugged", device.plugged != nullptr}};
}

Json Bus::Parts::reply(const Json& request, const void* client) {
    std::unique_lock<std::mutex> lock(mutex);
    BusDevice* device = servedBy(client);
    if (device == nullptr) {
        throw std::runtime_error("this connection answers for no device");
    }
    try {
        device->program->take(request);
    } catch (const std::exception& error) {
        device->program->end("invalid answer: " + std::string(error.what()));
        deliver(lock);
        throw;
    }
    if (device->plugged) {
        device->plugged->service();
    }
    deliver(lock);
    return Json::object();
}

void Bus::Parts::dismiss(const void* client, const std::string& why) {
    std::unique_lock<std::mutex> lock(mutex);
    if (BusDevice* device = servedBy(client); device != nullptr) {
        device->program->end(why);
        deliver(lock);
    }
}

}  // namespace simbus
