#include "DeviceModel.h"

#include <algorithm>
#include <stdexcept>

#include "Forever.h"
#include "Json.h"

namespace simbus {

namespace {

template <class Value>
Value oneOf(const Json& object, const char* key, Value fallback, const std::map<std::string, Value>& names) {
    const auto text = optionalText(object, key);
    if (!text) {
        return fallback;
    }
    const auto found = names.find(*text);
    if (found == names.end()) {
        throw std::runtime_error("\"" + std::string(key) + "\" is unknown: " + *text);
    }
    return found->second;
}

const Json& listOf(const Json& object, const char* key) {
    static const Json* const none = forever(Json::array());
    const Json& value = valueOf(object, key);
    if (value.is_null()) {
        return *none;
    }
    if (!value.is_array()) {
        throw std::runtime_error("\"" + std::string(key) + "\" is not a list");
    }
    return value;
}

Behaviour readBehaviour(const Json& json, std::uint8_t address) {
    using Kind = Behaviour::Kind;
    Behaviour behaviour;
    behaviour.kind = oneOf<Kind>(json, "behaviour", Kind::echo,
                                 {{"echo", Kind::echo},
                                  {"sink", Kind::sink},
                                  {"source", Kind::source},
                                  {"silent", Kind::silent},
                                  {"stall", Kind::stall},
                                  {"program", Kind::program}});
    behaviour.echoTo = numberOf<std::uint8_t>(json, "to", static_cast<std::uint8_t>(address | 0x80U));
    behaviour.delayMs = numberOf<std::uint32_t>(json, "delayMs", 0);
    behaviour.shortBy = numberOf<std::uint32_t>(json, "shortBy", 0);
    behaviour.limit = optionalNumber<std::uint32_t>(json, "limit");
    behaviour.record = flagOf(json, "record", true);
    return behaviour;
}

EndpointModel readEndpoint(const Json& json) {
    EndpointModel endpoint;
    endpoint.address = numberOf<std::uint8_t>(json, "address", 0);
    if ((endpoint.address & 0x0FU) == 0 || (endpoint.address & 0x70U) != 0) {
        throw std::runtime_error("\"address\" of an endpoint must be 0x01 to 0x0F or 0x81 to 0x8F");
    }
    endpoint.type = oneOf<TransferType>(json, "type", TransferType::bulk,
                                        {{"control", TransferType::control},
                                         {"isochronous", TransferType::isochronous},
                                         {"bulk", TransferType::bulk},
                                         {"interrupt", TransferType::interrupt}});
    endpoint.maxPacketSize = numberOf<std::uint16_t>(json, "maxPacketSize", 64);
    endpoint.interval = numberOf<std::uint8_t>(json, "interval", 0);
    endpoint.behaviour = readBehaviour(json, endpoint.address);
    return endpoint;
}

ControlRule readRule(const Json& json) {
    ControlRule rule;
    rule.requestType = optionalNumber<std::uint8_t>(json, "requestType");
    rule.request = optionalNumber<std::uint8_t>(json, "request");
    rule.value = optionalNumber<std::uint16_t>(json, "value");
    rule.index = optionalNumber<std::uint16_t>(json, "index");
    rule.reply = bytesOf(json, "reply");
    rule.store = optionalText(json, "store").value_or("");
    rule.fetch = optionalText(json, "fetch").value_or("");
    rule.stall = flagOf(json, "stall", false);
    rule.silent = flagOf(json, "silent", false);
    rule.program = flagOf(json, "program", false);
    return rule;
}

constexpr std::uint8_t kHidClass = 3;
constexpr std::uint8_t kVendorClass = 0xFF;
constexpr std::int64_t kLargestReport = 4096;

/// Reads one device and assigns string indices: 1 to 3 for the device's own strings, then the next free ones.
class DeviceReader {
 public:
    explicit DeviceReader(const Json& json) : json_(json) {}

    DeviceModel read() {
        readIdentity();
        readStrings();
        readConfigurations();
        readRawDescriptors();
        for (const Json& rule : listOf(json_, "control")) {
            device_.control.push_back(readRule(rule));
        }
        for (const auto& [name, code] : valueOf(json_, "hostFailures").items()) {
            device_.hostFailures[name] = static_cast<int>(integer(code, name.c_str(), -99, 99));
        }
        return std::move(device_);
    }

 private:
    void readIdentity() {
        device_.id = textOf(json_, "id");
        device_.plugged = flagOf(json_, "plugged", true);
        device_.speed = oneOf<Speed>(json_, "speed", Speed::full,
                                     {{"full", Speed::full}, {"high", Speed::high}, {"super", Speed::super}});
        device_.bus = numberOf<std::uint8_t>(json_, "bus", 1);
        device_.bcdUsb =
            numberOf<std::uint16_t>(json_, "bcdUSB", device_.speed == Speed::super ? 0x0300 : 0x0200);
        device_.vendorId = numberOf<std::uint16_t>(json_, "vendorId", 0);
        device_.productId = numberOf<std::uint16_t>(json_, "productId", 0);
        device_.bcdDevice = numberOf<std::uint16_t>(json_, "bcdDevice", 0x0100);
        device_.deviceClass = numberOf<std::uint8_t>(json_, "deviceClass", 0);
        device_.deviceSubClass = numberOf<std::uint8_t>(json_, "deviceSubClass", 0);
        device_.deviceProtocol = numberOf<std::uint8_t>(json_, "deviceProtocol", 0);
        // SuperSpeed devices give the exponent of two: 9 is 512.
        device_.maxPacketSize0 =
            numberOf<std::uint8_t>(json_, "maxPacketSize0", device_.speed == Speed::super ? 9 : 64);
    }

    void readStrings() {
        const Json english = Json::array({0x0409});
        const Json& languages = json_.contains("languages") ? listOf(json_, "languages") : english;
        if (!languages.empty()) {
            Bytes table{static_cast<std::uint8_t>(2 + 2 * languages.size()), 3};
            for (const Json& language : languages) {
                const auto id = static_cast<unsigned>(integer(language, "languages", 0, 0xFFFF));
                table.push_back(static_cast<std::uint8_t>(id & 0xFFU));
                table.push_back(static_cast<std::uint8_t>(id >> 8U));
            }
            device_.strings[0] = table;
        }
        for (const auto& [index, text] : valueOf(json_, "strings").items()) {
            const auto at = static_cast<std::uint8_t>(integer(Json(index), "strings", 1, 255));
            device_.strings[at] =
                text.is_object() ? bytesOf(text, "hex") : stringDescriptor(text.get<std::string>());
        }
        device_.serial = optionalText(json_, "serial").value_or("");
        device_.manufacturerIndex = ownString("manufacturer", 1);
        device_.productIndex = ownString("product", 2);
        device_.serialIndex = ownString("serial", 3);
    }

    // An explicit entry in "strings" may replace the text with the same index.
    std::uint8_t ownString(const char* key, std::uint8_t index) {
        const auto text = optionalText(json_, key);
        if (!text) {
            return 0;
        }
        device_.strings.emplace(index, stringDescriptor(*text));
        return index;
    }

    std::uint8_t nextString(const Json& object) {
        const auto text = optionalText(object, "string");
        if (!text) {
            return 0;
        }
        for (unsigned index = 4; index <= 255; ++index) {
            if (device_.strings.emplace(static_cast<std::uint8_t>(index), stringDescriptor(*text)).second) {
                return static_cast<std::uint8_t>(index);
            }
        }
        throw std::runtime_error("too many strings");
    }

    void readConfigurations() {
        for (const Json& json : listOf(json_, "configurations")) {
            ConfigurationModel configuration;
            configuration.value = numberOf<std::uint8_t>(json, "value", 1);
            configuration.attributes = numberOf<std::uint8_t>(json, "attributes", 0x80);
            configuration.maxPower = numberOf<std::uint8_t>(json, "maxPower", 50);
            configuration.stringIndex = nextString(json);
            readInterfaces(json, configuration);
            device_.configurations.push_back(std::move(configuration));
        }
        if (json_.contains("interfaces")) {
            readInterfaces(json_, device_.configurations.emplace_back());
        }
        const auto first =
            device_.configurations.empty() ? std::uint8_t{0} : device_.configurations.front().value;
        device_.activeConfiguration = numberOf<std::uint8_t>(json_, "activeConfiguration", first);
        if (device_.activeConfiguration != 0 &&
            device_.configuration(device_.activeConfiguration) == nullptr) {
            throw std::runtime_error("\"activeConfiguration\" is none of the configurations");
        }
    }

    static std::optional<HidModel> readHid(const Json& interface) {
        const Json& json = valueOf(interface, "hid");
        if (json.is_null()) {
            return std::nullopt;
        }
        const auto reportBytes = [&](const char* key) {
            const Json& value = valueOf(json, key);
            return static_cast<std::uint16_t>(value.is_null() ? 64 : integer(value, key, 1, kLargestReport));
        };
        HidModel hid{reportBytes("input"), reportBytes("output"), bytesOf(json, "report")};
        if (hid.report.size() > kLargestReport) {
            throw std::runtime_error("\"report\" has more than " + std::to_string(kLargestReport) + " bytes");
        }
        return hid;
    }

    void readInterfaces(const Json& object, ConfigurationModel& configuration) {
        for (const Json& json : listOf(object, "interfaces")) {
            InterfaceModel interface;
            interface.number = numberOf<std::uint8_t>(json, "number", 0);
            interface.alternate = numberOf<std::uint8_t>(json, "alternate", 0);
            interface.hid = readHid(json);
            interface.interfaceClass =
                numberOf<std::uint8_t>(json, "class", interface.hid ? kHidClass : kVendorClass);
            interface.subClass = numberOf<std::uint8_t>(json, "subClass", 0);
            interface.protocol = numberOf<std::uint8_t>(json, "protocol", 0);
            interface.stringIndex = nextString(json);
            interface.extra = bytesOf(json, "extra");
            for (const Json& endpoint : listOf(json, "endpoints")) {
                interface.endpoints.push_back(readEndpoint(endpoint));
            }
            configuration.interfaces.push_back(std::move(interface));
        }
    }

    void readRawDescriptors() {
        if (json_.contains("rawDeviceDescriptor")) {
            device_.rawDeviceDescriptor = bytesOf(json_, "rawDeviceDescriptor");
        }
        for (const Json& raw : listOf(json_, "rawConfigurationDescriptors")) {
            device_.rawConfigurationDescriptors.push_back(bytesOf(Json{{"raw", raw}}, "raw"));
        }
    }

    const Json& json_;
    DeviceModel device_;
};

}  // namespace

bool ControlRule::matches(const Setup& setup) const {
    return (!requestType || *requestType == setup.requestType) && (!request || *request == setup.request) &&
           (!value || *value == setup.value) && (!index || *index == setup.index);
}

const ConfigurationModel* DeviceModel::configuration(std::uint8_t value) const {
    for (const auto& candidate : configurations) {
        if (candidate.value == value) {
            return &candidate;
        }
    }
    return nullptr;
}

DeviceModel readDevice(const Json& json) {
    try {
        return DeviceReader(json).read();
    } catch (const std::exception& error) {
        const auto id = json.is_object() ? json.value("id", Json("?")).dump() : "?";
        throw std::runtime_error("device " + id + ": " + error.what());
    }
}

void forEachEndpoint(Json& device, const std::function<void(Json&)>& visit) {
    for (const char* key : {"configurations", "interfaces"}) {
        if (device.contains(key)) {
            for (Json& part : device[key]) {
                forEachEndpoint(part, visit);
            }
        }
    }
    if (device.contains("endpoints")) {
        std::for_each(device["endpoints"].begin(), device["endpoints"].end(), visit);
    }
}

}  // namespace simbus
