#include "Endpoint.h"

#include <algorithm>
#include <utility>

namespace simbus {

void Received::add(const std::uint8_t* data, std::size_t length) {
    constexpr std::size_t kMostBytes = 16U << 20U;
    constexpr std::size_t kMostPackets = 20000;
    packets_.emplace_back(data, data + length);
    bytes_ += length;
    while (bytes_ > kMostBytes || packets_.size() > kMostPackets) {
        bytes_ -= packets_.front().size();
        packets_.pop_front();
    }
}

void Received::clear() {
    packets_.clear();
    bytes_ = 0;
}

void Endpoint::submit(Transfer& transfer) {
    transfer.actual = 0;
    transfer.dueNanoseconds = 0;
    transfer.postponed = false;
    if (model_.behaviour.delayMs != 0) {
        transfer.dueNanoseconds = afterMilliseconds(model_.behaviour.delayMs);
    }
    waiting_.push_back(&transfer);
    service();
}

bool Endpoint::cancel(Transfer& transfer) {
    const auto found = std::find(waiting_.begin(), waiting_.end(), &transfer);
    if (found == waiting_.end()) {
        return false;
    }
    waiting_.erase(found);
    end(transfer, Status::cancelled);
    service();
    return true;
}

void Endpoint::feed(Bytes data, std::int64_t dueNanoseconds) {
    queue_.push_back({std::move(data), 0, dueNanoseconds});
    service();
}

void Endpoint::setBehaviour(const Behaviour& behaviour) {
    model_.behaviour = behaviour;
    service();
}

void Endpoint::setHalted(bool halted) {
    halted_ = halted;
    service();
}

void Endpoint::finishAll(Status status) {
    for (Transfer* transfer : std::exchange(waiting_, {})) {
        end(*transfer, status);
    }
}

void Endpoint::end(Transfer& transfer, Status status) {
    device_.program().cancel(transfer);
    device_.agenda().complete(transfer, status);
}

void Endpoint::forget() {
    queue_.clear();
    halted_ = false;
    nextSourceByte_ = 0;
    service();
}

void Endpoint::service() {
    if (std::exchange(inService_, true)) {
        return;  // re-entered from a transfer, such as a control request that halts its own pipe
    }
    while (serviceOne()) {
    }
    inService_ = false;
}

/// Returns false when nothing can complete now.
bool Endpoint::serviceOne() {
    if (waiting_.empty()) {
        return false;
    }
    Transfer& transfer = *waiting_.front();
    if (transfer.dueNanoseconds != 0 && transfer.dueNanoseconds > nowNanoseconds()) {
        device_.agenda().wakeAt(transfer.dueNanoseconds);
        return false;
    }
    if (!move(transfer)) {
        return false;
    }
    waiting_.pop_front();
    end(transfer, transfer.status);
    return true;
}

bool Endpoint::move(Transfer& transfer) {
    transfer.status = Status::completed;
    if (model_.type == TransferType::control) {
        const auto status = device_.answerControl(transfer);
        transfer.status = status.value_or(Status::completed);
        return status.has_value();
    }
    const std::size_t length = allowed(transfer);
    const bool isAnswered = model_.isIn() && !queue_.empty();
    const Rule* rule =
        halted_ || isAnswered ? nullptr : device_.memory().find(model_.behaviour.rules, transfer, length);
    if (rule != nullptr) {
        return obey(*rule, transfer, length);
    }
    if (halted()) {
        transfer.status = Status::stall;
        return true;
    }
    return model_.isIn() ? moveIn(transfer, length) : moveOut(transfer, length);
}

bool Endpoint::obey(const Rule& rule, Transfer& transfer, std::size_t length) {
    if (rule.silent || (model_.isIn() && device_.agenda().postpone(transfer, rule.delayMs))) {
        return false;
    }
    if (rule.program &&
        !(model_.isIn() ? fillFromProgram(transfer, length) : giveToProgram(transfer, length))) {
        return false;
    }
    auto reply = device_.applyRule(rule, transfer, length);
    if (rule.program) {
        return true;
    }
    if (rule.stall) {
        halted_ = true;
        transfer.status = Status::stall;
    } else if (model_.isIn()) {
        queue_.push_back({reply.value_or(Bytes()), 0, 0});
        takePacket(transfer, length);
    } else {
        take(transfer, length);
        if (reply) {
            device_.feed(model_.behaviour.echoTo, std::move(*reply), afterMilliseconds(rule.delayMs));
        }
    }
    return true;
}

std::size_t Endpoint::allowed(const Transfer& transfer) const {
    const auto& behaviour = model_.behaviour;
    const std::size_t length = transfer.length - std::min(behaviour.shortBy, transfer.length);
    return behaviour.limit ? std::min(*behaviour.limit, length) : length;
}

bool Endpoint::moveOut(Transfer& transfer, std::size_t length) {
    const auto& behaviour = model_.behaviour;
    if (behaviour.kind == Behaviour::Kind::silent) {
        transfer.actual = behaviour.limit ? length : 0;
        return false;
    }
    if (behaviour.kind == Behaviour::Kind::program) {
        return giveToProgram(transfer, length);
    }
    take(transfer, length);
    if (behaviour.kind == Behaviour::Kind::echo) {
        device_.feed(behaviour.echoTo, Bytes(transfer.data, transfer.data + transfer.actual), 0);
    }
    return true;
}

bool Endpoint::giveToProgram(Transfer& transfer, std::size_t length) {
    const auto answer = askProgram(transfer, length);
    if (answer && answer->status == Status::completed) {
        take(transfer, length);
    }
    return answer.has_value();
}

void Endpoint::take(Transfer& transfer, std::size_t length) {
    transfer.actual = length;
    if (model_.behaviour.record) {
        device_.received(model_.address).add(transfer.data, length);
    }
}

bool Endpoint::moveIn(Transfer& transfer, std::size_t wanted) {
    switch (model_.behaviour.kind) {
        case Behaviour::Kind::source:
            fillFromSource(transfer, wanted);
            return true;
        case Behaviour::Kind::echo:
            if (!canRead()) {
                return false;
            }
            takePacket(transfer, wanted);
            return true;
        case Behaviour::Kind::silent:
            if (model_.behaviour.limit && transfer.actual == 0) {
                fillFromSource(transfer, wanted);
            }
            return false;
        case Behaviour::Kind::program:
            return fillFromProgram(transfer, wanted);
        default:  // a sink has no data to send
            return false;
    }
}

/// Whether something is queued that is due.
bool Endpoint::canRead() {
    if (queue_.empty()) {
        return false;
    }
    const std::int64_t due = queue_.front().dueNanoseconds;
    const bool isDue = due <= nowNanoseconds();
    if (!isDue) {
        device_.agenda().wakeAt(due);
    }
    return isDue;
}

/// The answer of the program, once it is there. Its stall halts the endpoint until the host clears that.
std::optional<DeviceProgram::Answer> Endpoint::askProgram(Transfer& transfer, std::size_t length) {
    auto answer = device_.program().ask(transfer, length);
    if (answer) {
        transfer.status = answer->status;
        halted_ = answer->status == Status::stall && device_.program().answers();
    }
    return answer;
}

/// Takes what was fed, or else what the program answers.
bool Endpoint::fillFromProgram(Transfer& transfer, std::size_t wanted) {
    if (queue_.empty() || !device_.program().answers()) {
        const auto answer = askProgram(transfer, wanted);
        if (!answer || answer->status != Status::completed) {
            return answer.has_value();
        }
        queue_.push_back({answer->data, 0, 0});
    }
    if (!canRead()) {
        return false;
    }
    takePacket(transfer, wanted);
    return true;
}

void Endpoint::fillFromSource(Transfer& transfer, std::size_t wanted) {
    std::generate_n(transfer.data, wanted, [this] { return nextSourceByte_++; });
    transfer.actual = wanted;
}

/// Takes packets until one is short, the transfer is full, or none is left.
void Endpoint::takePacket(Transfer& transfer, std::size_t wanted) {
    const std::size_t packetSize = std::max<std::size_t>(model_.maxPacketSize & 0x7FFU, 1);
    const std::int64_t now = nowNanoseconds();
    device_.program().drop(transfer);
    transfer.actual = 0;
    while (!queue_.empty() && queue_.front().dueNanoseconds <= now) {
        Chunk& chunk = queue_.front();
        const std::size_t packet = std::min(packetSize, chunk.bytes.size() - chunk.at);
        const std::size_t room = wanted - transfer.actual;
        const std::size_t taken = std::min(packet, room);
        std::copy_n(chunk.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.at), taken,
                    transfer.data + transfer.actual);
        transfer.actual += taken;
        // A host whose buffer is too small for a packet loses the rest of the packet and gets an error. If
        // the device was told to answer short, the rest stays for the next transfer.
        const bool babble = packet > room && wanted == transfer.length;
        chunk.at += babble ? packet : taken;
        if (chunk.at == chunk.bytes.size()) {
            queue_.pop_front();
        }
        if (babble) {
            transfer.status = Status::overflow;
        }
        if (packet < packetSize || transfer.actual == wanted) {
            return;
        }
    }
}

}  // namespace simbus
