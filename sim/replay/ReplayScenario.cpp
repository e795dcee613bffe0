#include "ReplayScenario.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "Json.h"

namespace simbus::replay {

namespace {

constexpr std::uint8_t kHidClass = 3;
constexpr std::uint8_t kInterrupt = 3;

unsigned wordAt(const Bytes& bytes, std::size_t at) {
    return at + 1 < bytes.size() ? bytes[at] | static_cast<unsigned>(bytes[at + 1]) << 8U : 0;
}

/// The longest transfer at an endpoint, at least 1.
std::size_t longestAt(const RecordedDevice& device, std::uint8_t endpoint) {
    std::size_t longest = 1;
    for (const Exchange& exchange : device.exchanges) {
        if (exchange.kind != Kind::control && exchange.endpoint == endpoint) {
            longest = std::max({longest, exchange.sent.size(), exchange.answered.size() + exchange.missing});
        }
    }
    return longest;
}

/// Walks through the descriptors of a configuration.
class ConfigurationWriter {
 public:
    ConfigurationWriter(const RecordedDevice& device, const Bytes& bytes) : device_(device), bytes_(bytes) {}

    Json write() {
        constexpr std::size_t kSize = 9;
        Json configuration = {{"interfaces", Json::array()}};
        if (bytes_.size() >= kSize) {
            configuration["value"] = bytes_[5];
            configuration["attributes"] = bytes_[7];
            configuration["maxPower"] = bytes_[8];
        }
        for (std::size_t at = 0; at + 1 < bytes_.size() && bytes_[at] >= 2; at += bytes_[at]) {
            take(configuration["interfaces"], at);
        }
        return configuration;
    }

 private:
    void take(Json& interfaces, std::size_t at) {
        constexpr std::size_t kInterfaceSize = 9;
        constexpr std::size_t kEndpointSize = 7;
        const std::size_t size = std::min<std::size_t>(bytes_[at], bytes_.size() - at);
        const std::uint8_t* descriptor = bytes_.data() + at;
        if (descriptor[1] == interfaceType && size >= kInterfaceSize) {
            interfaces.push_back({{"number", descriptor[2]},
                                  {"alternate", descriptor[3]},
                                  {"class", descriptor[5]},
                                  {"subClass", descriptor[6]},
                                  {"protocol", descriptor[7]},
                                  {"endpoints", Json::array()}});
        } else if (descriptor[1] == endpointType && size >= kEndpointSize && !interfaces.empty()) {
            addEndpoint(interfaces.back(), descriptor, wordAt(bytes_, at + 4));
        }
    }

    void addEndpoint(Json& interface, const std::uint8_t* descriptor, unsigned maxPacketSize) {
        static constexpr const char* kTypes[] = {"control", "isochronous", "bulk", "interrupt"};
        const std::uint8_t address = descriptor[2];
        if ((address & 0x0FU) == 0 || (address & 0x70U) != 0) {
            return;  // which no endpoint has
        }
        const unsigned type = descriptor[3] & 3U;
        const bool isIsochronous = type == static_cast<unsigned>(1);
        interface["endpoints"].push_back({{"address", address},
                                          {"type", kTypes[type]},
                                          {"maxPacketSize", maxPacketSize},
                                          {"interval", descriptor[6]},
                                          {"behaviour", isIsochronous ? "silent" : "program"}});
        if (interface["class"] == kHidClass && type == kInterrupt) {
            addReports(interface, address, maxPacketSize);
        }
    }

    void addReports(Json& interface, std::uint8_t address, unsigned maxPacketSize) {
        constexpr std::size_t kLongest = 4096;
        const std::size_t size =
            std::clamp<std::size_t>(longestAt(device_, address), maxPacketSize & 0x7FFU, kLongest);
        const bool isIn = (address & 0x80U) != 0;
        interface["hid"][isIn ? "input" : "output"] = std::max<std::size_t>(size, 1);
        const auto report = device_.reports.find(interface["number"].get<std::uint8_t>());
        if (report != device_.reports.end() && report->second.size() <= kLongest) {
            interface["hid"]["report"] = hexOf(report->second);
        }
    }

    const RecordedDevice& device_;
    const Bytes& bytes_;
};

const char* speedOf(const RecordedDevice& device, const Json& configurations) {
    constexpr unsigned kSuperSpeed = 0x0300;
    if (wordAt(device.descriptor, 2) >= kSuperSpeed) {
        return "super";
    }
    for (const Json& configuration : configurations) {
        for (const Json& interface : configuration["interfaces"]) {
            for (const Json& endpoint : interface["endpoints"]) {
                if (endpoint["type"] == "bulk" && endpoint["maxPacketSize"] > 64) {
                    return "high";
                }
            }
        }
    }
    return "full";
}

Json ruleOf(const SetupBytes& setup) {
    return {{"requestType", setup[0]},
            {"request", setup[1]},
            {"value", setup[2] | setup[3] << 8},
            {"index", setup[4] | setup[5] << 8}};
}

/// What a rule does that has ended a request as this exchange; null when no rule can.
Json endOf(const Exchange& exchange) {
    switch (exchange.end) {
        case Exchange::End::completed:
            return exchange.isIn() ? Json{{"replies", Json::array()}} : Json::object();
        case Exchange::End::stall:
            return {{"stall", true}};
        case Exchange::End::silent:
            return {{"silent", true}};
        default:
            return nullptr;
    }
}

/// A rule for exchanges with the same request and data.
Json ruleOf(const std::vector<const Exchange*>& same) {
    const Exchange& first = *same.front();
    Json rule = ruleOf(first.setup);
    rule["length"] = first.length;
    if (!first.sent.empty()) {
        rule["data"] = hexOf(first.sent);
    }
    Json end = endOf(first);
    if (end.is_null() ||
        std::any_of(same.begin(), same.end(), [&](const Exchange* each) { return endOf(*each) != end; })) {
        rule["program"] = true;
        return rule;
    }
    for (const Exchange* each : same) {
        if (end.contains("replies")) {
            end["replies"].push_back(hexOf(answerOf(*each, askedBy(each->setup))));
        }
    }
    rule.update(end);
    return rule;
}

/// Rules that answer as the device did.
Json answeringRulesOf(const RecordedDevice& device) {
    std::map<std::pair<SetupBytes, Bytes>, std::vector<const Exchange*>> requests;
    for (const Exchange& exchange : device.exchanges) {
        if (exchange.kind == Kind::control) {
            requests[{exchange.setup, exchange.sent}].push_back(&exchange);
        }
    }
    Json rules = Json::array();
    for (const auto& [request, same] : requests) {
        rules.push_back(ruleOf(same));
    }
    return rules;
}

/// Rules for what the program is to answer, although the bus would.
Json rulesOf(const RecordedDevice& device) {
    std::set<SetupBytes> seen;
    Json rules = Json::array();
    for (const Exchange& exchange : device.exchanges) {
        SetupBytes setup = exchange.setup;
        setup[6] = setup[7] = 0;
        if (exchange.kind == Kind::control && seen.insert(setup).second) {
            rules.push_back(ruleOf(setup));
            rules.back()["program"] = true;
        }
    }
    return rules;
}

Json stringsOf(const RecordedDevice& device, Json& languages) {
    Json strings = Json::object();
    for (const auto& [index, descriptor] : device.strings) {
        if (index != 0) {
            strings[std::to_string(index)] = {{"hex", hexOf(descriptor)}};
            continue;
        }
        for (std::size_t at = 2; at + 1 < descriptor.size(); at += 2) {
            languages.push_back(wordAt(descriptor, at));
        }
    }
    return strings;
}

Json deviceOf(const RecordedDevice& device, AnsweredBy by) {
    Json configurations = Json::array();
    Json raw = Json::array();
    for (const auto& [index, bytes] : device.configurations) {
        configurations.push_back(ConfigurationWriter(device, bytes).write());
        raw.push_back(hexOf(bytes));
    }
    Json languages = Json::array();
    Json strings = stringsOf(device, languages);
    Json result = {{"id", device.id()},
                   {"bus", std::clamp<unsigned>(device.bus, 1, 255)},
                   {"speed", speedOf(device, configurations)},
                   {"vendorId", wordAt(device.descriptor, 8)},
                   {"productId", wordAt(device.descriptor, 10)},
                   {"bcdDevice", wordAt(device.descriptor, 12)},
                   {"rawDeviceDescriptor", hexOf(device.descriptor)},
                   {"rawConfigurationDescriptors", raw},
                   {"configurations", configurations},
                   {"strings", strings},
                   {"control", by == AnsweredBy::rules ? answeringRulesOf(device) : rulesOf(device)}};
    if (!languages.empty()) {
        result["languages"] = languages;
    }
    return result;
}

}  // namespace

Json scenarioOf(const std::vector<RecordedDevice>& devices, AnsweredBy by) {
    Json all = Json::array();
    for (const RecordedDevice& device : devices) {
        all.push_back(deviceOf(device, by));
    }
    return {{"devices", all}};
}

}  // namespace simbus::replay
