// The control protocol: requests and answers in JSON.
#include <stdexcept>

#include "BusParts.h"
#include "CallLog.h"
#include "Forever.h"
#include "Scenario.h"

namespace simbus {

namespace {

Json hexList(const std::vector<Bytes>& all) {
    Json list = Json::array();
    for (const Bytes& bytes : all) {
        list.push_back(hexOf(bytes));
    }
    return list;
}

std::uint8_t addressOf(const Json& request) {
    const auto address = optionalNumber<std::uint8_t>(request, "address");
    if (!address) {
        throw std::runtime_error("\"address\" is missing");
    }
    return *address;
}

const Json& objectOf(const Json& request, const char* key) {
    const Json& value = valueOf(request, key);
    if (!value.is_object()) {
        throw std::runtime_error("\"" + std::string(key) + "\" must be an object");
    }
    return value;
}

Json describe(const BusDevice& device) {
    const DeviceModel& model = device.model;
    Json json = {{"id", model.id},
                 {"plugged", device.plugged != nullptr},
                 {"vendorId", model.vendorId},
                 {"productId", model.productId},
                 {"bcdDevice", model.bcdDevice},
                 {"serial", model.serial},
                 {"bus", model.bus}};
    if (device.plugged) {
        json["address"] = device.plugged->info()->address;
        json["connection"] = device.plugged->info()->connection;
        json["configuration"] = device.plugged->configuration();
        json["state"] = device.plugged->state();
    }
    if (device.program->answers() || !device.program->whyNot().empty()) {
        json["program"] = device.program->answers() ? "answers" : device.program->whyNot();
    }
    return json;
}

}  // namespace

/// Answers one request. An exception becomes an answer with "ok":false.
class ControlProtocol {
 public:
    ControlProtocol(Bus& bus, Bus::Parts& parts) : bus_(bus), parts_(parts) {}

    Json answer(const Json& request) {
        static const auto* const operations =
            forever(std::map<std::string, Json (ControlProtocol::*)(const Json&)>{
                {"ping", &ControlProtocol::ping},
                {"load", &ControlProtocol::load},
                {"devices", &ControlProtocol::devices},
                {"plug", &ControlProtocol::plug},
                {"unplug", &ControlProtocol::unplug},
                {"add", &ControlProtocol::add},
                {"remove", &ControlProtocol::remove},
                {"change", &ControlProtocol::change},
                {"endpoint", &ControlProtocol::endpoint},
                {"feed", &ControlProtocol::feed},
                {"received", &ControlProtocol::received},
                {"pending", &ControlProtocol::pending},
                {"reset", &ControlProtocol::reset},
                {"fault", &ControlProtocol::fault},
                {"clearFaults", &ControlProtocol::clearFaults},
                {"calls", &ControlProtocol::calls},
                {"clearCalls", &ControlProtocol::clearCalls},
                {"violations", &ControlProtocol::violations},
                {"clearViolations", &ControlProtocol::clearViolations},
            });
        const std::string name = textOf(request, "op");
        const auto operation = operations->find(name);
        if (operation == operations->end()) {
            throw std::runtime_error("unknown operation: " + name);
        }
        return (this->*operation->second)(request);
    }

 private:
    Json ping(const Json& /*request*/) {
        const std::lock_guard<std::mutex> lock(parts_.mutex);
        static const auto* const names = forever(std::map<Bus::Front, const char*>{
            {Bus::Front::memory, "memory"}, {Bus::Front::kernel, "kernel"}, {Bus::Front::shared, "shared"}});
        return {{"front", names->at(parts_.front)}};
    }

    Json load(const Json& request) {
        const Json& scenario = objectOf(request, "scenario");
        inside("scenario", [&] { checkScenario(scenario); });
        std::unique_lock<std::mutex> lock(parts_.mutex);
        parts_.load(scenario["devices"]);
        parts_.settle(lock);
        return Json::object();
    }

    Json devices(const Json& /*request*/) {
        const std::lock_guard<std::mutex> lock(parts_.mutex);
        Json list = Json::array();
        for (const BusDevice& device : parts_.devices) {
            list.push_back(describe(device));
        }
        return {{"devices", list}};
    }

    Json plug(const Json& request) {
        bus_.plug(textOf(request, "device"));
        return Json::object();
    }

    Json unplug(const Json& request) {
        bus_.unplug(textOf(request, "device"));
        return Json::object();
    }

    Json add(const Json& request) {
        std::unique_lock<std::mutex> lock(parts_.mutex);
        parts_.add(objectOf(request, "device"));
        parts_.settle(lock);
        return Json::object();
    }

    Json remove(const Json& request) {
        std::unique_lock<std::mutex> lock(parts_.mutex);
        parts_.remove(parts_.find(textOf(request, "device")));
        parts_.settle(lock);
        return Json::object();
    }

    Json change(const Json& request) {
        std::unique_lock<std::mutex> lock(parts_.mutex);
        BusDevice& device = parts_.find(textOf(request, "device"));
        Json scenario = device.scenario;
        scenario.merge_patch(objectOf(request, "set"));
        Bus::Parts::change(device, scenario);
        parts_.settle(lock);
        return Json::object();
    }

    Json endpoint(const Json& request) {
        std::unique_lock<std::mutex> lock(parts_.mutex);
        BusDevice& device = parts_.find(textOf(request, "device"));
        Json scenario = device.scenario;
        const std::uint8_t address = addressOf(request);
        const Json& patch = objectOf(request, "set");
        bool found = false;
        forEachEndpoint(scenario, [&](Json& candidate) {
            if (numberOf<std::uint8_t>(candidate, "address", 0) == address) {
                candidate.merge_patch(patch);
                found = true;
            }
        });
        if (!found) {
            throw std::runtime_error("no such endpoint on " + device.model.id);
        }
        Bus::Parts::change(device, scenario);
        parts_.settle(lock);
        return Json::object();
    }

    Json feed(const Json& request) {
        if (const auto number = optionalNumber<std::int64_t>(request, "request"); number) {
            std::unique_lock<std::mutex> lock(parts_.mutex);
            const std::string id = textOf(request, "device");
            if (parts_.find(id).program->isAsked(*number)) {
                parts_.endpoint(id, addressOf(request)).feed(bytesOf(request, "data"));
                parts_.settle(lock);
            }
            return Json::object();
        }
        bus_.feed(textOf(request, "device"), addressOf(request), bytesOf(request, "data"));
        return Json::object();
    }

    Json received(const Json& request) {
        const std::lock_guard<std::mutex> lock(parts_.mutex);
        Received& record = parts_.received(textOf(request, "device"), addressOf(request));
        const Json packets = hexList(record.all());
        if (flagOf(request, "clear", false)) {
            record.clear();
        }
        return {{"packets", packets}};
    }

    Json pending(const Json& request) {
        return {{"count", bus_.pending(textOf(request, "device"), addressOf(request))}};
    }

    Json reset(const Json& /*request*/) {
        bus_.reset();
        return Json::object();
    }

    Json fault(const Json& request) {
        needMemoryFront();
        const auto code = optionalNumber<int>(request, "code");
        if (!code) {
            throw std::runtime_error("\"code\" is missing");
        }
        bus_.failCall(textOf(request, "call"), numberOf<unsigned>(request, "nth", 1), *code,
                      numberOf<unsigned>(request, "times", 1));
        return Json::object();
    }

    Json clearFaults(const Json& /*request*/) {
        needMemoryFront();
        bus_.clearFaults();
        return Json::object();
    }

    Json calls(const Json& /*request*/) {
        needMemoryFront();
        return {{"calls", bus_.calls()}};
    }

    Json clearCalls(const Json& /*request*/) {
        needMemoryFront();
        bus_.clearCalls();
        return Json::object();
    }

    Json violations(const Json& /*request*/) {
        needMemoryFront();
        return {{"violations", bus_.violations()}, {"tallies", CallLog::instance().tallies()}};
    }

    Json clearViolations(const Json& /*request*/) {
        needMemoryFront();
        bus_.clearViolations();
        return Json::object();
    }

    void needMemoryFront() {
        const std::lock_guard<std::mutex> lock(parts_.mutex);
        if (parts_.front != Bus::Front::memory) {
            throw std::runtime_error("no such operation on this bus");
        }
    }

    Bus& bus_;
    Bus::Parts& parts_;
};

std::string Bus::command(const std::string& jsonLine) {
    return answered([&] { return ControlProtocol(*this, *parts_).answer(Json::parse(jsonLine)); });
}

}  // namespace simbus
