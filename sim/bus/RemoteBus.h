// The bus of a process whose devices are in another one: every request goes to the control socket there.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "Agenda.h"
#include "Bus.h"
#include "Json.h"
#include "Worker.h"

namespace simbus {

/// What the calls of this process are counted, failed and checked by stays here. When the other process ends,
/// all devices have left.
class RemoteBus final : public Bus {
 public:
    /// Connects to the control socket at the path. On failure writes the reason to standard error; the bus
    /// then has no device and lacksScenario() is true.
    explicit RemoteBus(const std::string& path);

    bool lacksScenario() const override;

    void loadScenario(const std::string& json) override;
    void plug(const std::string& id) override;
    void unplug(const std::string& id) override;
    void reset() override;
    void feed(const std::string& id, std::uint8_t endpoint, const Bytes& data) override;
    std::vector<Bytes> received(const std::string& id, std::uint8_t endpoint) override;
    void clearReceived(const std::string& id, std::uint8_t endpoint) override;
    std::size_t pending(const std::string& id, std::uint8_t endpoint) override;
    std::string command(const std::string& jsonLine) override;

    std::vector<DeviceInfoPtr> devices() override;
    int subscribe(Subscriber subscriber) override;
    void unsubscribe(int subscription) override;
    Submitted submit(ConnectionId connection, Transfer& transfer) override;
    bool cancel(Transfer& transfer) override;
    Status setConfiguration(ConnectionId connection, std::uint8_t value) override;
    Status setAlternate(ConnectionId connection, std::uint8_t interfaceNumber,
                        std::uint8_t alternate) override;
    Status clearHalt(ConnectionId connection, std::uint8_t endpoint) override;
    Status resetDevice(ConnectionId connection) override;
    std::optional<std::uint8_t> configuration(ConnectionId connection) override;
    std::optional<std::uint8_t> alternate(ConnectionId connection, std::uint8_t interfaceNumber) override;
    std::optional<ActiveEndpoint> activeEndpoint(ConnectionId connection, std::uint8_t endpoint) override;
    bool claim(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner) override;
    void release(ConnectionId connection, std::uint8_t interfaceNumber, const void* owner) override;
    Status setDriver(ConnectionId connection, std::uint8_t interfaceNumber, bool attached) override;
    bool hasDriver(ConnectionId connection, std::uint8_t interfaceNumber) override;

 private:
    void stop() override;

    /// Returns the answer to a request; throws std::runtime_error with the text of a refusal.
    Json ask(const Json& request);
    std::string askLine(const std::string& line);
    /// Asks for a change of the bus, and makes the calls that it has caused before it returns. The caller
    /// must not hold a lock that these take.
    Json change(const Json& request);
    Status statusOf(const Json& request);
    std::optional<std::uint8_t> valueAt(const Json& request);

    /// On the threads below.
    void receive();
    void receiveLines();
    void deliver();
    void take(const std::string& line);
    void takeEvent(const Json& event);
    void takeEnd(const Json& event);
    void hangUp();
    DeviceInfoPtr deviceOf(const Json& json);

    int socket_ = -1;
    std::mutex asking_;  ///< held by the one request that waits for its answer; taken before mutex_

    std::mutex mutex_;
    bool gone_ = true;
    std::optional<std::string> answer_;
    std::condition_variable answered_;
    Agenda agenda_;
    std::condition_variable eventsCame_;
    bool eventsAreNew_ = false;
    bool stopping_ = false;
    std::map<ConnectionId, DeviceInfoPtr> devices_;  ///< those met and not known to have left
    std::set<Transfer*> waiting_;

    /// One thread reads and another makes the calls, because a call may ask and so wait for what is read.
    Worker receiver_;
    Worker deliverer_;
};

}  // namespace simbus
