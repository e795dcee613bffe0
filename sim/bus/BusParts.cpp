#include "BusParts.h"

#include <algorithm>
#include <stdexcept>

namespace simbus {

namespace {

/// The scenario without what a host cannot see and what takes effect at once: equal for devices that look the
/// same to a host.
Json visible(Json scenario) {
    scenario.erase("plugged");
    forEachEndpoint(scenario, [](Json& endpoint) {
        for (const char* key : {"behaviour", "to", "delayMs", "shortBy", "limit", "record", "rules"}) {
            endpoint.erase(key);
        }
    });
    return scenario;
}

}  // namespace

BusDevice& Bus::Parts::find(const std::string& id) {
    for (BusDevice& device : devices) {
        if (device.model.id == id) {
            return device;
        }
    }
    throw std::runtime_error("no such device: " + id);
}

PluggedDevice& Bus::Parts::findPlugged(const std::string& id) {
    BusDevice& device = find(id);
    if (!device.plugged) {
        throw std::runtime_error("not plugged in: " + id);
    }
    return *device.plugged;
}

PluggedDevice* Bus::Parts::connection(ConnectionId connection) {
    for (BusDevice& device : devices) {
        if (device.plugged && device.plugged->info()->connection == connection) {
            return device.plugged.get();
        }
    }
    return nullptr;
}

Endpoint& Bus::Parts::endpoint(const std::string& id, std::uint8_t address) {
    Endpoint* found = findPlugged(id).endpoint(address);
    if (found == nullptr) {
        throw std::runtime_error("no such endpoint in the active setting of " + id);
    }
    return *found;
}

Received& Bus::Parts::received(const std::string& id, std::uint8_t address) {
    endpoint(id, address);  // a mistyped address is an error, not an empty record
    return findPlugged(id).received(address);
}

/// Counts up as a host does, and skips addresses in use after it wraps around.
std::uint8_t Bus::Parts::nextAddress(std::uint8_t bus) {
    std::uint8_t& last = lastAddress[bus];
    const auto inUse = [&](std::uint8_t address) {
        return std::any_of(devices.begin(), devices.end(), [&](const BusDevice& device) {
            return device.plugged && device.plugged->info()->busNumber == bus &&
                   device.plugged->info()->address == address;
        });
    };
    for (int tries = 0; tries < 127; ++tries) {
        last = static_cast<std::uint8_t>(last % 127 + 1);
        if (!inUse(last)) {
            return last;
        }
    }
    throw std::runtime_error("no address is free on the bus");
}

void Bus::Parts::load(const Json& list) {
    lacksScenario = false;
    while (!devices.empty()) {
        remove(devices.back());
    }
    loaded = list;
    for (const Json& device : list) {
        insert(device);
    }
    for (BusDevice& device : devices) {
        plugAtStart(device);
    }
}

BusDevice& Bus::Parts::insert(const Json& scenario) {
    DeviceModel model = readDevice(scenario);
    for (const BusDevice& device : devices) {
        if (device.model.id == model.id) {
            throw std::runtime_error("there is already a device " + model.id);
        }
    }
    return devices.emplace_back(
        BusDevice{scenario, std::move(model), std::make_unique<DeviceProgram>(agenda), nullptr, nullptr});
}

void Bus::Parts::add(const Json& scenario) {
    if (const auto hub = optionalText(scenario, "hub"); hub) {
        find(*hub);
    }
    plugAtStart(insert(scenario));
}

void Bus::Parts::plugAtStart(BusDevice& device) {
    const bool isPossible = device.model.hub.empty() || find(device.model.hub).plugged;
    if (device.model.plugged && !device.plugged && isPossible) {
        plug(device);
    }
}

void Bus::Parts::remove(BusDevice& device) {
    if (device.plugged) {
        unplug(device);
    }
    device.program->end("the device was removed");
    devices.erase(devices.begin() + (&device - devices.data()));
}

void Bus::Parts::plug(BusDevice& device) {
    if (device.plugged) {
        throw std::runtime_error("already plugged in: " + device.model.id);
    }
    const DeviceInfo* hub = device.model.hub.empty() ? nullptr : findPlugged(device.model.hub).info().get();
    const std::uint8_t address = nextAddress(hub != nullptr ? hub->busNumber : device.model.bus);
    device.plugged = std::make_unique<PluggedDevice>(device.model, ++lastConnection, address, hub, agenda,
                                                     *device.program);
    device.pluggedScenario = device.scenario;
    device.program->tell({{"event", "plugged"}});
    agenda.tell(device.plugged->info(), true);
    for (BusDevice& each : devices) {
        if (each.model.hub == device.model.id) {
            plugAtStart(each);
        }
    }
}

void Bus::Parts::unplug(BusDevice& device) {
    if (!device.plugged) {
        throw std::runtime_error("already unplugged: " + device.model.id);
    }
    const ConnectionId connection = device.plugged->info()->connection;
    for (BusDevice& each : devices) {
        if (each.plugged && each.plugged->info()->hub == connection) {
            unplug(each);
        }
    }
    device.plugged->finishAll(Status::noDevice);
    device.program->tell({{"event", "unplugged"}});
    agenda.tell(device.plugged->info(), false);
    device.plugged.reset();
}

void Bus::Parts::change(BusDevice& device, const Json& scenario) {
    DeviceModel model = readDevice(scenario);
    if (model.id != device.model.id) {
        throw std::runtime_error("the id of a device cannot be changed");
    }
    device.scenario = scenario;
    device.model = std::move(model);
    if (device.plugged) {
        device.plugged->adoptBehaviours(device.model);
    }
}

void Bus::Parts::reset() {
    const auto original = [this](const BusDevice& device) {
        return std::find_if(loaded.begin(), loaded.end(),
                            [&](const Json& json) { return json["id"] == device.model.id; });
    };
    for (std::size_t i = devices.size(); i-- > 0;) {
        BusDevice& device = devices[i];
        const auto found = original(device);
        if (found == loaded.end()) {
            remove(device);
            continue;
        }
        const bool kept = device.plugged && device.plugged->asPlugged() &&
                          visible(device.pluggedScenario) == visible(*found);
        if (device.scenario != *found) {
            change(device, *found);
        } else if (device.plugged) {  // reading the same text again would take long
            device.plugged->adoptBehaviours(device.model);
        }
        if (device.plugged && !(kept && device.model.plugged)) {
            unplug(device);
        } else if (device.plugged) {
            device.plugged->forgetPast();
        }
    }
    for (const Json& json : loaded) {
        const auto present = std::find_if(devices.begin(), devices.end(), [&](const BusDevice& device) {
            return json["id"] == device.model.id;
        });
        if (present == devices.end()) {
            insert(json);
        }
    }
    for (BusDevice& device : devices) {
        plugAtStart(device);
    }
}

void Bus::Parts::deliver(std::unique_lock<std::mutex>& lock) {
    startTimer();
    agenda.deliver(lock);
}

void Bus::Parts::settle(std::unique_lock<std::mutex>& lock) {
    startTimer();
    agenda.settle(lock);
}

void Bus::Parts::startTimer() {
    if (agenda.nextWake() != Agenda::kNever && !timer.running() && !stopping) {
        timer.start([this] { serveTimer(); });
    }
}

void Bus::Parts::serveTimer() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopping) {
        const std::int64_t wake = agenda.nextWake();
        if (wake == Agenda::kNever) {
            agenda.wakeChanged().wait(lock);
        } else if (wake > nowNanoseconds()) {
            agenda.wakeChanged().wait_until(
                lock, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(wake)));
        } else {
            agenda.takeWake();
            for (BusDevice& device : devices) {
                if (device.plugged) {
                    device.plugged->service();
                }
            }
            agenda.deliver(lock);
        }
    }
}

}  // namespace simbus
