#include "Scenario.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "DeviceModel.h"

namespace simbus {

namespace {

constexpr unsigned kMostAddresses = 127;
constexpr unsigned kMostHubs = 5;  // in a row, below the root hub

/// Walks through valid JSON.
class Walker {
 public:
    explicit Walker(const std::string& text)
        : text_(text), at_(std::min(text.find_first_of("{["), text.size())) {}

    /// From a value into a part of it. Returns where the part begins; empty when the value has none of this
    /// name or number, and then the walk is over.
    std::optional<std::size_t> enter(const Json& step) {
        const auto part = step.is_string() ? member(step.get<std::string>()) : entry(step.get<std::size_t>());
        at_ = part.value_or(at_);
        if (part && step.is_string()) {
            skipString();
            takes(':');
        }
        return part;
    }

 private:
    /// Of two with the same name the last one counts.
    std::optional<std::size_t> member(const std::string& name) {
        std::optional<std::size_t> found;
        if (takes('{')) {
            while (!takes('}')) {
                const std::size_t begin = at_;
                skipString();
                if (Json::parse(text_.substr(begin, at_ - begin)) == name) {
                    found = begin;
                }
                takes(':');
                skipValue();
                takes(',');
            }
        }
        return found;
    }

    std::optional<std::size_t> entry(std::size_t number) {
        if (!takes('[') || takes(']')) {
            return std::nullopt;
        }
        for (; number > 0; --number) {
            skipValue();
            if (!takes(',')) {
                return std::nullopt;
            }
        }
        return at_;
    }

    /// Whether this character is next; it is left behind then, and white space anyway.
    bool takes(char expected) {
        skipSpace();
        const bool isNext = text_[at_] == expected;
        at_ += isNext ? 1U : 0U;
        skipSpace();
        return isNext;
    }

    void skipSpace() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

    void skipString() {
        while (text_[++at_] != '"') {
            at_ += text_[at_] == '\\' ? 1U : 0U;
        }
        ++at_;
    }

    void skipValue() {
        int depth = 0;
        do {
            skipSpace();
            switch (text_[at_]) {
                case '"':
                    skipString();
                    break;
                case '{':
                case '[':
                    ++depth;
                    ++at_;
                    break;
                case '}':
                case ']':
                    --depth;
                    ++at_;
                    break;
                case ',':
                case ':':
                    ++at_;
                    break;
                default:  // a number or a word
                    at_ = text_.find_first_of(",:]} \t\r\n", at_);
            }
        } while (depth > 0);
    }

    const std::string& text_;
    std::size_t at_;
};

/// The device at the root to which the device's hubs lead.
const DeviceModel& rootOf(const DeviceModel& device, const std::map<std::string, DeviceModel>& all) {
    const DeviceModel* root = &device;
    for (unsigned hubs = 0; !root->hub.empty(); ++hubs) {
        const auto found = all.find(root->hub);
        if (found == all.end()) {
            throw Wrong("hub", "is no device of the scenario: " + root->hub);
        }
        if (hubs == kMostHubs) {
            throw Wrong("hub", "is at the end of more than " + std::to_string(kMostHubs) + " hubs");
        }
        root = &found->second;
    }
    return *root;
}

Json parsed(const std::string& text) {
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        const std::size_t line = what.find("line ");
        throw std::runtime_error(line == std::string::npos ? what : what.substr(line));
    }
}

}  // namespace

std::size_t lineAt(const std::string& text, const std::vector<Json>& way) {
    Walker walker(text);
    std::size_t found = 0;
    for (const Json& step : way) {
        const auto part = walker.enter(step);
        if (!part) {
            break;
        }
        found = *part;
    }
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(found);
    return 1 + static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
}

void checkScenario(const Json& scenario) {
    const Fields fields(scenario);
    if (!fields["devices"].is_array()) {
        throw Wrong("devices", "must be a list");
    }
    fields.refuseOthers();
    std::map<std::string, DeviceModel> devices;
    forEachOf(fields, "devices", [&](const Json& json) {
        DeviceModel device = readDevice(json);
        const std::string id = device.id;
        if (!devices.emplace(id, std::move(device)).second) {
            throw Wrong("id", "is that of another device, too: " + id);
        }
    });
    std::map<std::uint8_t, unsigned> plugged;
    std::set<std::pair<std::string, std::uint8_t>> ports;
    forEachOf(fields, "devices", [&](const Json& json) {
        const DeviceModel& device = devices.at(json["id"].get<std::string>());
        const std::uint8_t bus = rootOf(device, devices).bus;
        if (device.plugged && ++plugged[bus] > kMostAddresses) {
            throw Wrong("bus", "has no address left for this device");
        }
        const std::string hub = device.hub.empty() ? std::to_string(bus) : "hub " + device.hub;
        if (device.port && !ports.insert({hub, *device.port}).second) {
            throw Wrong("port", "is that of another device, too: " + std::to_string(*device.port));
        }
    });
}

Json readScenario(const std::string& text) {
    Json scenario = parsed(text);
    try {
        checkScenario(scenario);
    } catch (const Wrong& wrong) {
        throw std::runtime_error("line " + std::to_string(lineAt(text, wrong.way())) + ": " + wrong.what());
    }
    return scenario;
}

}  // namespace simbus
