#include "RemoteBus.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "Forever.h"
#include "HostMessages.h"
#include "LocalSocket.h"
#include "Scenario.h"

namespace simbus {

using Lock = std::unique_lock<std::mutex>;

namespace {

constexpr std::size_t kBytesAtOnce = 64U << 10U;

/// A transfer is named by its address, which no other waiting transfer has.
std::uint64_t numberOf(const Transfer& transfer) {
    return reinterpret_cast<std::uintptr_t>(&transfer);
}

Json request(const char* operation, ConnectionId connection) {
    return {{"op", operation}, {"connection", connection}};
}

Json request(const char* operation, const std::string& device) {
    return {{"op", operation}, {"device", device}};
}

Json request(const char* operation, const std::string& device, std::uint8_t endpoint) {
    return {{"op", operation}, {"device", device}, {"address", endpoint}};
}

Json with(Json request, const char* key, std::uint8_t value) {
    request[key] = value;
    return request;
}

Json operationOf(const std::string& jsonLine) {
    const Json request = Json::parse(jsonLine, nullptr, false);
    return request.is_object() ? valueOf(request, "op") : Json();
}

/// The other process has no calls of this one to count or fail.
bool isAboutCalls(const Json& operation) {
    static const auto* const operations = forever(std::set<Json>{
        "ping", "fault", "clearFaults", "calls", "clearCalls", "violations", "clearViolations"});
    return operations->count(operation) != 0;
}

}  // namespace

RemoteBus::RemoteBus(const std::string& path) {
    socket_ = connectTo(path);
    if (socket_ < 0) {
        std::fprintf(stderr, "simbus: no bus at %s: %s\n", path.c_str(), std::strerror(errno));
        return;
    }
    gone_ = false;
    receiver_.start([this] { receive(); });
    deliverer_.start([this] { deliver(); });
    ask({{"op", "subscribe"}});
}

void RemoteBus::stop() {
    Bus::stop();
    if (socket_ >= 0) {
        disconnect(socket_);
    }
    {
        const Lock lock(mutex_);
        stopping_ = true;
        eventsCame_.notify_all();
    }
    receiver_.finish();
    deliverer_.finish();
}

bool RemoteBus::lacksScenario() const {
    return socket_ < 0;
}

std::string RemoteBus::askLine(const std::string& line) {
    const Lock turn(asking_);
    Lock lock(mutex_);
    if (!gone_) {
        answer_.reset();
        lock.unlock();
        const bool sent = sendAll(socket_, line + '\n');
        lock.lock();
        answered_.wait(lock, [&] { return !sent || gone_ || answer_; });
        if (answer_) {
            return *std::exchange(answer_, std::nullopt);
        }
    }
    throw std::runtime_error("the process with the bus has ended");
}

Json RemoteBus::ask(const Json& request) {
    Json answer = Json::parse(askLine(lineOf(request)), nullptr, false);
    if (!answer.is_object()) {
        throw std::runtime_error("the bus answers what is not of its protocol");
    }
    if (!flagOf(answer, "ok", false)) {
        throw std::runtime_error(optionalText(answer, "error").value_or("refused"));
    }
    return answer;
}

/// What the change has caused was sent before the answer.
Json RemoteBus::change(const Json& request) {
    Json answer = ask(request);
    Lock lock(mutex_);
    agenda_.settle(lock);
    return answer;
}

void RemoteBus::loadScenario(const std::string& json) {
    change({{"op", "load"}, {"scenario", readScenario(json)}});
}

void RemoteBus::plug(const std::string& id) {
    change(request("plug", id));
}

void RemoteBus::unplug(const std::string& id) {
    change(request("unplug", id));
}

void RemoteBus::reset() {
    change({{"op", "reset"}});
    Bus::reset();
}

void RemoteBus::feed(const std::string& id, std::uint8_t endpoint, const Bytes& data) {
    Json fed = request("feed", id, endpoint);
    fed["data"] = hexOf(data);
    change(fed);
}

std::vector<Bytes> RemoteBus::received(const std::string& id, std::uint8_t endpoint) {
    std::vector<Bytes> packets;
    const Json answer = ask(request("received", id, endpoint));
    for (const Json& packet : valueOf(answer, "packets")) {
        packets.push_back(bytesFrom(packet, "packet"));
    }
    return packets;
}

void RemoteBus::clearReceived(const std::string& id, std::uint8_t endpoint) {
    Json cleared = request("received", id, endpoint);
    cleared["clear"] = true;
    ask(cleared);
}

std::size_t RemoteBus::pending(const std::string& id, std::uint8_t endpoint) {
    return ask(request("pending", id, endpoint))["count"].get<std::size_t>();
}

std::string RemoteBus::command(const std::string& jsonLine) {
    if (isAboutCalls(operationOf(jsonLine))) {
        return Bus::command(jsonLine);
    }
    try {
        std::string answer = askLine(jsonLine);
        if (operationOf(jsonLine) == "reset") {
            Bus::reset();
        }
        Lock lock(mutex_);
        agenda_.settle(lock);
        return answer;
    } catch (const std::exception& problem) {
        return answered([&]() -> Json { throw std::runtime_error(problem.what()); });
    }
}

std::vector<DeviceInfoPtr> RemoteBus::devices() {
    std::vector<DeviceInfoPtr> infos;
    try {
        const Json answer = ask({{"op", "connections"}});
        const Lock lock(mutex_);
        for (const Json& device : valueOf(answer, "connections")) {
            infos.push_back(deviceOf(device));
        }
    } catch (const std::runtime_error&) {
        infos.clear();  // no bus, no devices
    }
    return infos;
}

int RemoteBus::subscribe(Subscriber subscriber) {
    const Lock lock(mutex_);
    return agenda_.subscribe(std::move(subscriber));
}

void RemoteBus::unsubscribe(int subscription) {
    const Lock lock(mutex_);
    agenda_.unsubscribe(subscription);
}

Submitted RemoteBus::submit(ConnectionId connection, Transfer& transfer) {
    Json submitted = request("submit", connection);
    submitted["transfer"] = numberOf(transfer);
    submitted["address"] = transfer.endpoint;
    if ((transfer.endpoint & 0x0FU) == 0) {
        submitted["setup"] = hexOf(toBytes(transfer.setup));
    }
    if (isIn(transfer)) {
        submitted["length"] = transfer.length;
    } else if (transfer.data != nullptr) {
        submitted["data"] = hexOf({transfer.data, transfer.data + transfer.length});
    }
    transfer.connection = connection;
    transfer.actual = 0;
    {
        const Lock lock(mutex_);
        waiting_.insert(&transfer);
    }
    Submitted answer = Submitted::noDevice;
    try {
        answer = submittedFrom(change(submitted), "submitted");
    } catch (const std::runtime_error&) {
        // Its end may have been announced, when the other process ended in between.
    }
    if (answer == Submitted::accepted) {
        return answer;
    }
    const Lock lock(mutex_);
    return waiting_.erase(&transfer) != 0 ? answer : Submitted::accepted;
}

bool RemoteBus::cancel(Transfer& transfer) {
    try {
        const Json answer = change({{"op", "cancel"}, {"transfer", numberOf(transfer)}});
        return flagOf(answer, "cancelled", false);
    } catch (const std::runtime_error&) {
        return false;
    }
}

Status RemoteBus::statusOf(const Json& request) {
    try {
        return statusFrom(change(request), "status");
    } catch (const std::runtime_error&) {
        return Status::noDevice;
    }
}

std::optional<std::uint8_t> RemoteBus::valueAt(const Json& request) {
    try {
        return optionalNumber<std::uint8_t>(ask(request), "value");
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

Status RemoteBus::setConfiguration(ConnectionId connection, std::uint8_t value) {
    return statusOf(with(request("setConfiguration", connection), "value", value));
}

Status RemoteBus::setAlternate(ConnectionId connection, std::uint8_t interfaceNumber,
                               std::uint8_t alternate) {
    return statusOf(
        with(with(request("setAlternate", connection), "interface", interfaceNumber), "value", alternate));
}

Status RemoteBus::clearHalt(ConnectionId connection, std::uint8_t endpoint) {
    return statusOf(with(request("clearHalt", connection), "address", endpoint));
}

Status RemoteBus::resetDevice(ConnectionId connection) {
    return statusOf(request("resetDevice", connection));
}

std::optional<std::uint8_t> RemoteBus::configuration(ConnectionId connection) {
    return valueAt(request("configuration", connection));
}

std::optional<std::uint8_t> RemoteBus::alternate(ConnectionId connection, std::uint8_t interfaceNumber) {
    return valueAt(with(request("alternate", connection), "interface", interfaceNumber));
}

std::optional<ActiveEndpoint> RemoteBus::activeEndpoint(ConnectionId connection, std::uint8_t endpoint) {
    try {
        const Json answer = ask(with(request("activeEndpoint", connection), "address", endpoint));
        const auto number = optionalNumber<std::uint8_t>(answer, "interface");
        const auto type = static_cast<TransferType>(simbus::numberOf<std::uint8_t>(answer, "type", 0));
        return number ? std::optional<ActiveEndpoint>({*number, type}) : std::nullopt;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

bool RemoteBus::claim(ConnectionId connection, std::uint8_t interfaceNumber, const void* /*owner*/) {
    try {
        const Json answer = ask(with(request("claim", connection), "interface", interfaceNumber));
        return flagOf(answer, "claimed", false);
    } catch (const std::runtime_error&) {
        return true;  // the device is gone, which the caller learns from its next request
    }
}

void RemoteBus::release(ConnectionId connection, std::uint8_t interfaceNumber, const void* /*owner*/) {
    try {
        ask(with(request("release", connection), "interface", interfaceNumber));
    } catch (const std::runtime_error&) {
        return;  // nobody has claims on a bus that is gone
    }
}

Status RemoteBus::setDriver(ConnectionId connection, std::uint8_t interfaceNumber, bool attached) {
    return statusOf(with(with(request("setDriver", connection), "interface", interfaceNumber), "value",
                         static_cast<std::uint8_t>(attached)));
}

bool RemoteBus::hasDriver(ConnectionId connection, std::uint8_t interfaceNumber) {
    return valueAt(with(request("hasDriver", connection), "interface", interfaceNumber)) == 1;
}

// --- Threads.

void RemoteBus::receive() {
    try {
        receiveLines();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "simbus: the bus sends what is not of its protocol: %s\n", problem.what());
    }
    hangUp();
}

void RemoteBus::receiveLines() {
    std::string text;
    std::string buffer(kBytesAtOnce, '\0');
    ssize_t got = 0;
    while ((got = recv(socket_, buffer.data(), buffer.size(), 0)) > 0 || (got < 0 && errno == EINTR)) {
        std::size_t searched = text.size();
        text.append(buffer, 0, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        std::size_t start = 0;
        for (std::size_t end = 0; (end = text.find('\n', searched)) != std::string::npos;) {
            take(text.substr(start, end - start));
            start = searched = end + 1;
        }
        text.erase(0, start);
    }
}

void RemoteBus::take(const std::string& line) {
    const Json message = Json::parse(line, nullptr, false);
    const bool isEvent = message.is_object() && message.contains("event");
    const Lock lock(mutex_);
    if (isEvent) {
        takeEvent(message);
        eventsAreNew_ = true;
        eventsCame_.notify_all();
    } else {
        answer_ = line;
        answered_.notify_all();
    }
}

void RemoteBus::takeEvent(const Json& event) {
    if (textOf(event, "event") == "ended") {
        return takeEnd(event);
    }
    const DeviceInfoPtr device = deviceOf(valueOf(event, "device"));
    const bool arrived = textOf(event, "event") == "arrived";
    if (!arrived) {
        devices_.erase(device->connection);
    }
    agenda_.tell(device, arrived);
}

void RemoteBus::takeEnd(const Json& event) {
    const auto number = optionalNumber<std::int64_t>(event, "transfer").value_or(0);
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), [&](const Transfer* each) {
        return numberOf(*each) == static_cast<std::uint64_t>(number);
    });
    if (found == waiting_.end()) {
        return;
    }
    Transfer& transfer = **found;
    waiting_.erase(found);
    const Bytes data = bytesOf(event, "data");
    std::copy_n(data.begin(), std::min(data.size(), transfer.length), transfer.data);
    transfer.actual =
        std::min<std::size_t>(simbus::numberOf<std::uint32_t>(event, "actual", 0), transfer.length);
    agenda_.complete(transfer, statusFrom(event, "status"));
}

/// The other process has ended, and with it every device.
void RemoteBus::hangUp() {
    const Lock lock(mutex_);
    gone_ = true;
    for (Transfer* transfer : waiting_) {
        agenda_.complete(*transfer, Status::noDevice);
    }
    waiting_.clear();
    for (const auto& [connection, device] : devices_) {
        agenda_.tell(device, false);
    }
    devices_.clear();
    eventsAreNew_ = true;
    answered_.notify_all();
    eventsCame_.notify_all();
}

void RemoteBus::deliver() {
    Lock lock(mutex_);
    while (!stopping_) {
        eventsAreNew_ = false;
        agenda_.deliver(lock);  // unless another thread is delivering, which then delivers these, too
        eventsCame_.wait(lock, [&] { return stopping_ || eventsAreNew_; });
    }
}

/// The same object for a connection whenever it is met; the mutex is held.
DeviceInfoPtr RemoteBus::deviceOf(const Json& json) {
    auto device = std::make_shared<DeviceInfo>(deviceFrom(json));
    return devices_.emplace(device->connection, device).first->second;
}

}  // namespace simbus
