#include "DeviceModel.h"

#include <algorithm>
#include <array>

#include "Json.h"

namespace simbus {

namespace {

template <class Value>
Value oneOf(const Fields& object, const char* key, Value fallback,
            const std::map<std::string, Value>& names) {
    const auto text = optionalText(object, key);
    if (!text) {
        return fallback;
    }
    const auto found = names.find(*text);
    if (found == names.end()) {
        throw Wrong(key, "is unknown: " + *text);
    }
    return found->second;
}

constexpr std::array kHostOperations = {"open", "claim", "setConfiguration", "getConfiguration"};
constexpr std::uint8_t kHidClass = 3;
constexpr std::uint8_t kVendorClass = 0xFF;
constexpr std::int64_t kLargestReport = 4096;
constexpr std::size_t kLongestDescriptor = 255;

/// Reads one device, numbers its rules and assigns string indices: 1 to 3 for the device's own strings, then
/// the next free ones.
class DeviceReader {
 public:
    explicit DeviceReader(const Json& json) : fields_(json) {}

    DeviceModel read() {
        readIdentity();
        readStrings();
        readConfigurations();
        readRawDescriptors();
        device_.state = optionalText(fields_, "state").value_or("");
        device_.control = rulesOf(fields_, "control", RulePlace::control);
        forEachIn(fields_, "hostFailures", [&](const std::string& operation, const Json& code) {
            if (std::find(kHostOperations.begin(), kHostOperations.end(), operation) ==
                kHostOperations.end()) {
                throw Wrong(operation, "is unknown here");
            }
            device_.hostFailures[operation] = static_cast<int>(integer(code, operation.c_str(), -99, 99));
        });
        fields_.refuseOthers();
        return std::move(device_);
    }

 private:
    void readIdentity() {
        device_.id = textOf(fields_, "id");
        device_.plugged = flagOf(fields_, "plugged", true);
        device_.speed = oneOf<Speed>(fields_, "speed", Speed::full,
                                     {{"full", Speed::full}, {"high", Speed::high}, {"super", Speed::super}});
        device_.bus = numberOf<std::uint8_t>(fields_, "bus", 1);
        device_.hub = optionalText(fields_, "hub").value_or("");
        device_.port = optionalNumber<std::uint8_t>(fields_, "port");
        if (device_.port == 0) {
            throw Wrong("port", "must be 1 to 255");
        }
        device_.bcdUsb =
            numberOf<std::uint16_t>(fields_, "bcdUSB", device_.speed == Speed::super ? 0x0300 : 0x0200);
        device_.vendorId = numberOf<std::uint16_t>(fields_, "vendorId", 0);
        device_.productId = numberOf<std::uint16_t>(fields_, "productId", 0);
        device_.bcdDevice = numberOf<std::uint16_t>(fields_, "bcdDevice", 0x0100);
        device_.deviceClass = numberOf<std::uint8_t>(fields_, "deviceClass", 0);
        device_.deviceSubClass = numberOf<std::uint8_t>(fields_, "deviceSubClass", 0);
        device_.deviceProtocol = numberOf<std::uint8_t>(fields_, "deviceProtocol", 0);
        // SuperSpeed devices give the exponent of two: 9 is 512.
        device_.maxPacketSize0 =
            numberOf<std::uint8_t>(fields_, "maxPacketSize0", device_.speed == Speed::super ? 9 : 64);
    }

    void readStrings() {
        readLanguages();
        forEachIn(fields_, "strings", [&](const std::string& index, const Json& text) {
            const auto at = static_cast<std::uint8_t>(integer(Json(index), index.c_str(), 1, 255));
            device_.strings[at] = stringOf(index, text);
        });
        device_.serial = optionalText(fields_, "serial").value_or("");
        device_.manufacturerIndex = ownString("manufacturer", 1);
        device_.productIndex = ownString("product", 2);
        device_.serialIndex = ownString("serial", 3);
    }

    void readLanguages() {
        Bytes table{2, 3};
        if (fields_["languages"].is_null()) {
            table = {4, 3, 0x09, 0x04};  // English
        }
        forEachOf(fields_, "languages", [&](const Json& language) {
            const auto id = static_cast<unsigned>(integer(language, "language", 0, 0xFFFF));
            table.push_back(static_cast<std::uint8_t>(id & 0xFFU));
            table.push_back(static_cast<std::uint8_t>(id >> 8U));
        });
        if (table.size() > kLongestDescriptor) {
            throw Wrong("languages", "has more than 126 entries");
        }
        table[0] = static_cast<std::uint8_t>(table.size());
        if (table.size() > 2) {
            device_.strings[0] = table;
        }
    }

    static Bytes stringOf(const std::string& index, const Json& text) {
        if (text.is_string()) {
            return stringDescriptor(text.get<std::string>());
        }
        Bytes whole;
        inside(index, [&] {
            const Fields fields(text);
            whole = bytesOf(fields, "hex");
            fields.refuseOthers();
        });
        return whole;
    }

    // An explicit entry in "strings" may replace the text with the same index.
    std::uint8_t ownString(const char* key, std::uint8_t index) {
        const auto text = optionalText(fields_, key);
        if (!text) {
            return 0;
        }
        device_.strings.emplace(index, stringDescriptor(*text));
        return index;
    }

    std::uint8_t nextString(const Fields& fields) {
        const auto text = optionalText(fields, "string");
        if (!text) {
            return 0;
        }
        for (unsigned index = 4; index <= 255; ++index) {
            if (device_.strings.emplace(static_cast<std::uint8_t>(index), stringDescriptor(*text)).second) {
                return static_cast<std::uint8_t>(index);
            }
        }
        throw Wrong("string", "is one too many for the device");
    }

    void readConfigurations() {
        forEachOf(fields_, "configurations", [&](const Json& json) {
            const Fields fields(json);
            ConfigurationModel configuration;
            configuration.value = numberOf<std::uint8_t>(fields, "value", 1);
            configuration.attributes = numberOf<std::uint8_t>(fields, "attributes", 0x80);
            configuration.maxPower = numberOf<std::uint8_t>(fields, "maxPower", 50);
            configuration.stringIndex = nextString(fields);
            readInterfaces(fields, configuration);
            fields.refuseOthers();
            device_.configurations.push_back(std::move(configuration));
        });
        if (!fields_["interfaces"].is_null()) {
            readInterfaces(fields_, device_.configurations.emplace_back());
        }
        const auto first =
            device_.configurations.empty() ? std::uint8_t{0} : device_.configurations.front().value;
        device_.activeConfiguration = numberOf<std::uint8_t>(fields_, "activeConfiguration", first);
        if (device_.activeConfiguration != 0 &&
            device_.configuration(device_.activeConfiguration) == nullptr) {
            throw Wrong("activeConfiguration", "is none of the configurations");
        }
    }

    void readInterfaces(const Fields& object, ConfigurationModel& configuration) {
        forEachOf(object, "interfaces", [&](const Json& json) {
            const Fields fields(json);
            InterfaceModel interface;
            interface.number = numberOf<std::uint8_t>(fields, "number", 0);
            interface.alternate = numberOf<std::uint8_t>(fields, "alternate", 0);
            if (const Json& hid = fields["hid"]; !hid.is_null()) {
                inside("hid", [&] { interface.hid = readHid(hid); });
            }
            interface.interfaceClass =
                numberOf<std::uint8_t>(fields, "class", interface.hid ? kHidClass : kVendorClass);
            interface.subClass = numberOf<std::uint8_t>(fields, "subClass", 0);
            interface.protocol = numberOf<std::uint8_t>(fields, "protocol", 0);
            interface.stringIndex = nextString(fields);
            interface.extra = bytesOf(fields, "extra");
            forEachOf(fields, "endpoints",
                      [&](const Json& endpoint) { interface.endpoints.push_back(readEndpoint(endpoint)); });
            fields.refuseOthers();
            configuration.interfaces.push_back(std::move(interface));
        });
    }

    static HidModel readHid(const Json& json) {
        const Fields fields(json);
        const auto reportBytes = [&](const char* key) {
            const Json& value = fields[key];
            return static_cast<std::uint16_t>(value.is_null() ? 64 : integer(value, key, 1, kLargestReport));
        };
        HidModel hid{reportBytes("input"), reportBytes("output"), bytesOf(fields, "report")};
        fields.refuseOthers();
        if (hid.report.size() > kLargestReport) {
            throw Wrong("report", "has more than " + std::to_string(kLargestReport) + " bytes");
        }
        return hid;
    }

    EndpointModel readEndpoint(const Json& json) {
        const Fields fields(json);
        EndpointModel endpoint;
        endpoint.address = numberOf<std::uint8_t>(fields, "address", 0);
        if ((endpoint.address & 0x0FU) == 0 || (endpoint.address & 0x70U) != 0) {
            throw Wrong("address", "of an endpoint must be 0x01 to 0x0F or 0x81 to 0x8F");
        }
        endpoint.type = oneOf<TransferType>(fields, "type", TransferType::bulk,
                                            {{"control", TransferType::control},
                                             {"isochronous", TransferType::isochronous},
                                             {"bulk", TransferType::bulk},
                                             {"interrupt", TransferType::interrupt}});
        endpoint.maxPacketSize = numberOf<std::uint16_t>(fields, "maxPacketSize", 64);
        endpoint.interval = numberOf<std::uint8_t>(fields, "interval", 0);
        endpoint.behaviour = readBehaviour(fields, endpoint);
        fields.refuseOthers();
        return endpoint;
    }

    Behaviour readBehaviour(const Fields& fields, const EndpointModel& endpoint) {
        using Kind = Behaviour::Kind;
        Behaviour behaviour;
        behaviour.rules = rulesOf(fields, "rules", endpoint.isIn() ? RulePlace::in : RulePlace::out);
        // A host that writes what no rule knows does not expect to read it back.
        const bool takesRequests = !endpoint.isIn() && !behaviour.rules.empty();
        behaviour.kind = oneOf<Kind>(fields, "behaviour", takesRequests ? Kind::sink : Kind::echo,
                                     {{"echo", Kind::echo},
                                      {"sink", Kind::sink},
                                      {"source", Kind::source},
                                      {"silent", Kind::silent},
                                      {"stall", Kind::stall},
                                      {"program", Kind::program}});
        behaviour.echoTo =
            numberOf<std::uint8_t>(fields, "to", static_cast<std::uint8_t>(endpoint.address | 0x80U));
        behaviour.delayMs = numberOf<std::uint32_t>(fields, "delayMs", 0);
        behaviour.shortBy = numberOf<std::uint32_t>(fields, "shortBy", 0);
        behaviour.limit = optionalNumber<std::uint32_t>(fields, "limit");
        behaviour.record = flagOf(fields, "record", true);
        return behaviour;
    }

    std::vector<Rule> rulesOf(const Fields& fields, const char* key, RulePlace place) {
        std::vector<Rule> rules;
        forEachOf(fields, key,
                  [&](const Json& rule) { rules.push_back(readRule(rule, place, lastRule_++)); });
        return rules;
    }

    void readRawDescriptors() {
        if (!fields_["rawDeviceDescriptor"].is_null()) {
            device_.rawDeviceDescriptor = bytesOf(fields_, "rawDeviceDescriptor");
        }
        forEachOf(fields_, "rawConfigurationDescriptors", [&](const Json& raw) {
            device_.rawConfigurationDescriptors.push_back(bytesFrom(raw, "descriptor"));
        });
    }

    const Fields fields_;
    DeviceModel device_;
    unsigned lastRule_ = 0;
};

}  // namespace

const ConfigurationModel* DeviceModel::configuration(std::uint8_t value) const {
    for (const auto& candidate : configurations) {
        if (candidate.value == value) {
            return &candidate;
        }
    }
    return nullptr;
}

DeviceModel readDevice(const Json& json) {
    return DeviceReader(json).read();
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
