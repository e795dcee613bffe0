// The inside of the bus.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Agenda.h"
#include "Bus.h"
#include "ControlSocket.h"
#include "Json.h"
#include "PluggedDevice.h"
#include "Worker.h"

namespace simbus {

/// A device of the bus, plugged in or not.
struct BusDevice {
    Json scenario;      ///< as last changed
    DeviceModel model;  ///< parsed from `scenario`
    std::unique_ptr<DeviceProgram> program;
    std::unique_ptr<PluggedDevice> plugged;
    Json pluggedScenario;  ///< as it was at the plug
};

struct Bus::Parts : ProgramDesk {
    std::mutex mutex;
    Agenda agenda;
    std::vector<BusDevice> devices;
    Json loaded = Json::array();  ///< the devices of the loaded scenario
    bool lacksScenario = false;
    ConnectionId lastConnection = 0;
    std::map<std::uint8_t, std::uint8_t> lastAddress;  ///< by bus number
    Front front = Front::memory;
    std::map<std::pair<ConnectionId, std::uint8_t>, const void*>
        claims;  ///< owner by connection and interface

    Worker timer;  ///< completes delayed transfers; started with the first of them
    bool stopping = false;
    ControlSocket socket;

    /// The caller of each of these holds the lock.
    BusDevice& find(const std::string& id);
    PluggedDevice& findPlugged(const std::string& id);
    PluggedDevice* connection(ConnectionId connection);
    BusDevice* servedBy(const void* client);  ///< null when the client is no program
    Endpoint& endpoint(const std::string& id, std::uint8_t address);
    Received& received(const std::string& id, std::uint8_t address);
    std::uint8_t nextAddress(std::uint8_t bus);

    /// Replaces all devices with those of a checked scenario.
    void load(const Json& list);
    BusDevice& insert(const Json& scenario);  ///< not yet plugged in
    void add(const Json& scenario);
    void remove(BusDevice& device);
    /// With a hub come the devices in it that the scenario has plugged in; with it they leave.
    void plug(BusDevice& device);
    void unplug(BusDevice& device);
    /// Plugs the device in if the scenario has it plugged in and its hub, if any, is there.
    void plugAtStart(BusDevice& device);
    /// Changes the scenario of a device: endpoint behaviours take effect at once, everything else at the next
    /// plug.
    static void change(BusDevice& device, const Json& scenario);
    void reset();

    Json serve(const Json& request, const void* client, const ControlSocket::Tell& tell) override;
    Json reply(const Json& request, const void* client) override;
    void dismiss(const void* client, const std::string& why) override;

    /// To be called last by every function that may cause completions, news or delays; see Agenda.
    void deliver(std::unique_lock<std::mutex>& lock);
    void settle(std::unique_lock<std::mutex>& lock);
    void startTimer();
    void serveTimer();
};

}  // namespace simbus
