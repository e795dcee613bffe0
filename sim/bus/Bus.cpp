#include "Bus.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "BusParts.h"
#include "CallLog.h"
#include "HostSession.h"
#include "RemoteBus.h"
#include "Scenario.h"

namespace simbus {

using Lock = std::unique_lock<std::mutex>;

namespace {

/// Returns null when the variable is unset, and in a program that has more rights than its user: the user
/// must not control it.
const char* fromEnvironment(const char* name) {
#ifdef __GLIBC__
    const char* value = secure_getenv(name);
#else
    const char* value = issetugid() != 0 ? nullptr : std::getenv(name);
#endif
    return value == nullptr || *value == '\0' ? nullptr : value;
}

/// Returns false when there is a scenario that cannot be loaded, and writes the reason to standard error.
bool loadFromEnvironment(Bus& bus) {
    const char* path = fromEnvironment("SIMBUS_SCENARIO");
    if (path == nullptr) {
        return true;
    }
    try {
        bus.loadScenarioFile(path);
        return true;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "simbus: %s\n", error.what());
        return false;
    }
}

}  // namespace

/// Stops the threads when the process ends or the library is unloaded. Their data stays, because threads of
/// the program may still be calling.
struct BusEnd {
    ~BusEnd() { Bus::instance().stop(); }
};

Bus& Bus::instance() {
    static auto* const bus = create();
    static const BusEnd end;
    return *bus;
}

namespace {
[[maybe_unused]] const Bus& madeAtLoad = Bus::instance();
}

Bus::Bus() : parts_(new Parts) {}

Bus* Bus::create() {
    Bus* bus = nullptr;
    if (const char* path = fromEnvironment("SIMBUS_BUS"); path != nullptr) {
        bus = new RemoteBus(path);
    } else {
        bus = new Bus;
        bus->parts_->lacksScenario = !loadFromEnvironment(*bus);
    }
    if (const char* path = fromEnvironment("SIMBUS_SOCKET"); path != nullptr) {
        bus->openControlSocket(path);
    }
    return bus;
}

bool Bus::hasControlSocket() const {
    return parts_->socket.isOpen();
}

bool Bus::openControlSocket(const std::string& path) {
    return hasControlSocket() || parts_->socket.open(path, [this](const ControlSocket::Tell& tell) {
        // Ends with the last copy of the answer.
        const std::shared_ptr<HostSession> session(new HostSession(*this, *parts_, tell));
        const std::shared_ptr<void> end(nullptr, [session](void*) { session->end(); });
        return [session, end](const std::string& line) { return session->answer(line); };
    });
}

bool Bus::lacksScenario() const {
    const Lock lock(parts_->mutex);
    return parts_->lacksScenario;
}

void Bus::stop() {
    parts_->socket.close();
    {
        const Lock lock(parts_->mutex);
        parts_->stopping = true;
        parts_->agenda.wakeChanged().notify_all();
    }
    parts_->timer.finish();
}

void Bus::loadScenario(const std::string& json) {
    const Json scenario = readScenario(json);
    Lock lock(parts_->mutex);
    parts_->load(scenario["devices"]);
    parts_->settle(lock);
}

void Bus::loadScenarioFile(const std::string& path) {
    std::ifstream file(path);
    try {
        if (!file || std::filesystem::is_directory(path)) {
            throw std::runtime_error("cannot be read");
        }
        loadScenario({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    } catch (const std::exception& error) {
        throw std::runtime_error("scenario " + path + ": " + error.what());
    }
}

void Bus::plug(const std::string& id) {
    Lock lock(parts_->mutex);
    parts_->plug(parts_->find(id));
    parts_->settle(lock);
}

void Bus::unplug(const std::string& id) {
    Lock lock(parts_->mutex);
    parts_->unplug(parts_->find(id));
    parts_->settle(lock);
}

void Bus::reset() {
    Lock lock(parts_->mutex);
    parts_->reset();
    parts_->settle(lock);
    lock.unlock();
    CallLog& log = CallLog::instance();
    log.clearFaults();
    log.clearHooks();
    log.clearCounts();
    log.clearViolations();
}

void Bus::feed(const std::string& id, std::uint8_t endpoint, const Bytes& data) {
    if ((endpoint & 0x80U) == 0) {
        throw std::runtime_error("only an IN endpoint can be fed");
    }
    Lock lock(parts_->mutex);
    const BusDevice& device = parts_->find(id);
    if (!device.plugged && device.program->answers()) {
        return;  // it has left while its program was at work
    }
    parts_->endpoint(id, endpoint).feed(data);
    parts_->settle(lock);
}

std::vector<Bytes> Bus::received(const std::string& id, std::uint8_t endpoint) {
    const Lock lock(parts_->mutex);
    return parts_->received(id, endpoint).all();
}

void Bus::clearReceived(const std::string& id, std::uint8_t endpoint) {
    const Lock lock(parts_->mutex);
    parts_->received(id, endpoint).clear();
}

std::size_t Bus::pending(const std::string& id, std::uint8_t endpoint) {
    const Lock lock(parts_->mutex);
    return parts_->endpoint(id, endpoint).waiting();
}

std::vector<DeviceInfoPtr> Bus::devices() {
    const Lock lock(parts_->mutex);
    std::vector<DeviceInfoPtr> infos;
    for (const BusDevice& device : parts_->devices) {
        if (device.plugged) {
            infos.push_back(device.plugged->info());
        }
    }
    std::sort(infos.begin(), infos.end(),
              [](const auto& one, const auto& other) { return one->connection < other->connection; });
    return infos;
}

int Bus::subscribe(Subscriber subscriber) {
    const Lock lock(parts_->mutex);
    return parts_->agenda.subscribe(std::move(subscriber));
}

void Bus::unsubscribe(int subscription) {
    const Lock lock(parts_->mutex);
    parts_->agenda.unsubscribe(subscription);
}

Submitted Bus::submit(ConnectionId connection, Transfer& transfer) {
    Lock lock(parts_->mutex);
    PluggedDevice* device = parts_->connection(connection);
    if (device == nullptr) {
        return Submitted::noDevice;
    }
    Endpoint* endpoint = device->endpoint(transfer.endpoint);
    if (endpoint == nullptr) {
        return Submitted::noEndpoint;
    }
    transfer.connection = connection;
    endpoint->submit(transfer);
    parts_->deliver(lock);
    return Submitted::accepted;
}

bool Bus::cancel(Transfer& transfer) {
    Lock lock(parts_->mutex);
    PluggedDevice* device = parts_->connection(transfer.connection);
    Endpoint* endpoint = device == nullptr ? nullptr : device->endpoint(transfer.endpoint);
    const bool cancelled = endpoint != nullptr && endpoint->cancel(transfer);
    parts_->deliver(lock);
    return cancelled;
}

template <class Action>
Status Bus::onDevice(ConnectionId connection, Action action) {
    Lock lock(parts_->mutex);
    PluggedDevice* device = parts_->connection(connection);
    if (device == nullptr) {
        return Status::noDevice;
    }
    const Status status = action(*device);
    parts_->deliver(lock);
    return status;
}

Status Bus::setConfiguration(ConnectionId connection, std::uint8_t value) {
    return onDevice(connection, [&](PluggedDevice& device) { return device.setConfiguration(value); });
}

Status Bus::setAlternate(ConnectionId connection, std::uint8_t interfaceNumber, std::uint8_t alternate) {
    return onDevice(connection,
                    [&](PluggedDevice& device) { return device.setAlternate(interfaceNumber, alternate); });
}

bool Bus::claim(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner) {
    const Lock lock(parts_->mutex);
    return parts_->claims.emplace(std::make_pair(connection, interfaceNumber), owner).first->second == owner;
}

void Bus::release(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner) {
    const Lock lock(parts_->mutex);
    const auto found = parts_->claims.find({connection, interfaceNumber});
    if (found != parts_->claims.end() && found->second == owner) {
        parts_->claims.erase(found);
    }
}

void Bus::releaseAll(const void* owner) {
    const Lock lock(parts_->mutex);
    auto& claims = parts_->claims;
    for (auto claim = claims.begin(); claim != claims.end();) {
        claim = claim->second == owner ? claims.erase(claim) : std::next(claim);
    }
}

Status Bus::setDriver(ConnectionId connection, std::uint8_t interfaceNumber, bool attached) {
    return onDevice(connection,
                    [&](PluggedDevice& device) { return device.setDriver(interfaceNumber, attached); });
}

bool Bus::hasDriver(ConnectionId connection, std::uint8_t interfaceNumber) {
    const Lock lock(parts_->mutex);
    const PluggedDevice* device = parts_->connection(connection);
    return device != nullptr && device->hasDriver(interfaceNumber);
}

Status Bus::clearHalt(ConnectionId connection, std::uint8_t endpoint) {
    return onDevice(connection, [&](PluggedDevice& device) {
        Endpoint* target = device.endpoint(endpoint);
        if (target == nullptr) {
            return Status::stall;
        }
        target->setHalted(false);
        return Status::completed;
    });
}

Status Bus::resetDevice(ConnectionId connection) {
    return onDevice(connection, [](PluggedDevice& device) {
        device.reset();
        return Status::completed;
    });
}

std::optional<std::uint8_t> Bus::configuration(ConnectionId connection) {
    const Lock lock(parts_->mutex);
    const PluggedDevice* device = parts_->connection(connection);
    return device == nullptr ? std::nullopt : std::optional<std::uint8_t>(device->configuration());
}

std::optional<std::uint8_t> Bus::alternate(ConnectionId connection, std::uint8_t interfaceNumber) {
    const Lock lock(parts_->mutex);
    const PluggedDevice* device = parts_->connection(connection);
    return device == nullptr ? std::nullopt : device->alternate(interfaceNumber);
}

std::optional<ActiveEndpoint> Bus::activeEndpoint(ConnectionId connection, std::uint8_t endpoint) {
    const Lock lock(parts_->mutex);
    PluggedDevice* device = parts_->connection(connection);
    const Endpoint* found = device == nullptr ? nullptr : device->endpoint(endpoint);
    if (found == nullptr) {
        return std::nullopt;
    }
    return ActiveEndpoint{found->interfaceNumber(), found->model().type};
}

void Bus::setFront(Front front) {
    const Lock lock(parts_->mutex);
    parts_->front = front;
}

void Bus::failCall(const std::string& function, unsigned nth, int code, unsigned times) {
    CallLog::instance().fail(function, nth, code, times);
}

void Bus::clearFaults() {
    CallLog::instance().clearFaults();
}

void Bus::onCall(const std::string& function, std::function<void()> hook) {
    CallLog::instance().hook(function, std::move(hook));
}

void Bus::clearHooks() {
    CallLog::instance().clearHooks();
}

std::map<std::string, std::uint64_t> Bus::calls() {
    return CallLog::instance().counts();
}

void Bus::clearCalls() {
    CallLog::instance().clearCounts();
}

std::vector<std::string> Bus::violations() {
    return CallLog::instance().violations();
}

void Bus::addViolation(const std::string& text) {
    CallLog::instance().addViolation(text);
}

void Bus::clearViolations() {
    CallLog::instance().clearViolations();
}

std::int64_t Bus::tally(const std::string& name) {
    return CallLog::instance().tally(name);
}

void Bus::addToTally(const std::string& name, std::int64_t amount) {
    CallLog::instance().addToTally(name, amount);
}

}  // namespace simbus
