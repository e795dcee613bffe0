#include "HostSession.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "Forever.h"
#include "HostMessages.h"

namespace simbus {

namespace {

constexpr std::size_t kLongestTransfer = std::size_t{64} << 20U;

template <class T>
T needed(const Json& request, const char* key) {
    const auto number = optionalNumber<T>(request, key);
    if (!number) {
        throw std::runtime_error("\"" + std::string(key) + "\" is missing");
    }
    return *number;
}

std::uint64_t identifierOf(const Json& request, const char* key) {
    return static_cast<std::uint64_t>(needed<std::int64_t>(request, key));
}

ConnectionId connectionOf(const Json& request) {
    return identifierOf(request, "connection");
}

std::uint8_t interfaceOf(const Json& request) {
    return needed<std::uint8_t>(request, "interface");
}

Json answerWith(Status status) {
    return {{"status", nameOf(status)}};
}

template <class T>
Json answerWith(const char* key, const std::optional<T>& value) {
    return {{key, value ? Json(*value) : Json(nullptr)}};
}

}  // namespace

const std::map<std::string, HostSession::Operation>& HostSession::operations() {
    static const auto* const all = forever(std::map<std::string, Operation>{
        {"connections", &HostSession::connections},
        {"subscribe", &HostSession::subscribe},
        {"submit", &HostSession::submit},
        {"cancel", &HostSession::cancel},
        {"setConfiguration", &HostSession::setConfiguration},
        {"setAlternate", &HostSession::setAlternate},
        {"clearHalt", &HostSession::clearHalt},
        {"resetDevice", &HostSession::resetDevice},
        {"configuration", &HostSession::configuration},
        {"alternate", &HostSession::alternate},
        {"activeEndpoint", &HostSession::endpointOf},
        {"claim", &HostSession::claim},
        {"release", &HostSession::release},
        {"setDriver", &HostSession::setDriver},
        {"hasDriver", &HostSession::hasDriver},
        {"serve", &HostSession::serve},
        {"reply", &HostSession::reply},
    });
    return *all;
}

std::string HostSession::answer(const std::string& line) {
    const Json request = Json::parse(line, nullptr, false);
    if (!request.is_object()) {
        programs_.dismiss(this, "invalid answer: a line is not a JSON object");
    }
    const Json operation = request.is_object() ? valueOf(request, "op") : Json();
    const auto found = operation.is_string() ? operations().find(operation) : operations().end();
    if (found == operations().end()) {
        return bus_.command(line);
    }
    return answered([&] { return (this->*found->second)(request); });
}

Json HostSession::connections(const Json& /*request*/) {
    Json list = Json::array();
    for (const DeviceInfoPtr& device : bus_.devices()) {
        list.push_back(toJson(*device));
    }
    return {{"connections", list}};
}

Json HostSession::subscribe(const Json& /*request*/) {
    if (subscription_ == 0) {
        subscription_ = bus_.subscribe([tell = tell_](const DeviceInfoPtr& device, bool arrived) {
            tell(lineOf({{"event", arrived ? "arrived" : "left"}, {"device", toJson(*device)}}));
        });
    }
    return Json::object();
}

Json HostSession::submit(const Json& request) {
    const auto number = identifierOf(request, "transfer");
    const ConnectionId connection = connectionOf(request);
    const auto waiting = std::make_shared<Waiting>();
    Transfer& transfer = waiting->transfer;
    transfer.endpoint = needed<std::uint8_t>(request, "address");
    if ((transfer.endpoint & 0x0FU) == 0) {
        transfer.setup = setupFrom(bytesOf(request, "setup"));
    }
    waiting->data = bytesOf(request, "data");
    transfer.length = isIn(transfer) ? needed<std::uint32_t>(request, "length") : waiting->data.size();
    if (transfer.length > kLongestTransfer) {
        throw std::runtime_error("the transfer is too long");
    }
    waiting->data.resize(transfer.length);
    transfer.data = waiting->data.data();
    transfer.setup.length =
        static_cast<std::uint16_t>(std::min<std::size_t>(transfer.setup.length, transfer.length));
    transfer.done = [self = shared_from_this(), number] { self->ended(number); };
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!waiting_.emplace(number, waiting).second) {
            throw std::runtime_error("a transfer of that number is waiting");
        }
    }
    const Submitted submitted = bus_.submit(connection, transfer);
    if (submitted != Submitted::accepted) {
        const std::lock_guard<std::mutex> lock(mutex_);
        waiting_.erase(number);
    }
    return {{"submitted", nameOf(submitted)}};
}

void HostSession::ended(std::uint64_t number) {
    const auto keep = shared_from_this();  // the end of the transfer drops its reference to this session
    std::shared_ptr<Waiting> waiting;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = waiting_.find(number);
        waiting = std::move(found->second);
        waiting_.erase(found);  // the client may use the number again as soon as it is told
    }
    const Transfer& transfer = waiting->transfer;
    Json event = {{"event", "ended"},
                  {"transfer", number},
                  {"status", nameOf(transfer.status)},
                  {"actual", transfer.actual}};
    if (isIn(transfer)) {
        waiting->data.resize(transfer.actual);
        event["data"] = hexOf(waiting->data);
    }
    tell_(lineOf(event));
}

Json HostSession::cancel(const Json& request) {
    std::shared_ptr<Waiting> waiting;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = waiting_.find(identifierOf(request, "transfer"));
        waiting = found == waiting_.end() ? nullptr : found->second;
    }
    return {{"cancelled", waiting != nullptr && bus_.cancel(waiting->transfer)}};
}

Json HostSession::setConfiguration(const Json& request) {
    return answerWith(bus_.setConfiguration(connectionOf(request), needed<std::uint8_t>(request, "value")));
}

Json HostSession::setAlternate(const Json& request) {
    return answerWith(bus_.setAlternate(connectionOf(request), interfaceOf(request),
                                        needed<std::uint8_t>(request, "value")));
}

Json HostSession::clearHalt(const Json& request) {
    return answerWith(bus_.clearHalt(connectionOf(request), needed<std::uint8_t>(request, "address")));
}

Json HostSession::resetDevice(const Json& request) {
    return answerWith(bus_.resetDevice(connectionOf(request)));
}

Json HostSession::configuration(const Json& request) {
    return answerWith("value", bus_.configuration(connectionOf(request)));
}

Json HostSession::alternate(const Json& request) {
    return answerWith("value", bus_.alternate(connectionOf(request), interfaceOf(request)));
}

Json HostSession::endpointOf(const Json& request) {
    const auto endpoint =
        bus_.activeEndpoint(connectionOf(request), needed<std::uint8_t>(request, "address"));
    if (!endpoint) {
        return {{"interface", nullptr}};
    }
    return {{"interface", endpoint->interfaceNumber}, {"type", static_cast<int>(endpoint->type)}};
}

Json HostSession::claim(const Json& request) {
    return {{"claimed", bus_.claim(connectionOf(request), interfaceOf(request), this)}};
}

Json HostSession::release(const Json& request) {
    bus_.release(connectionOf(request), interfaceOf(request), this);
    return Json::object();
}

Json HostSession::setDriver(const Json& request) {
    const bool attached = needed<std::uint8_t>(request, "value") != 0;
    return answerWith(bus_.setDriver(connectionOf(request), interfaceOf(request), attached));
}

Json HostSession::hasDriver(const Json& request) {
    return {{"value", bus_.hasDriver(connectionOf(request), interfaceOf(request)) ? 1 : 0}};
}

Json HostSession::serve(const Json& request) {
    return programs_.serve(request, this, tell_);
}

Json HostSession::reply(const Json& request) {
    return programs_.reply(request, this);
}

void HostSession::end() {
    programs_.dismiss(this, "the program ended");
    if (subscription_ != 0) {
        bus_.unsubscribe(subscription_);
    }
    std::vector<std::shared_ptr<Waiting>> left;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [number, waiting] : waiting_) {
            left.push_back(waiting);
        }
    }
    for (const auto& waiting : left) {
        bus_.cancel(waiting->transfer);
    }
    bus_.releaseAll(this);
}

}  // namespace simbus
