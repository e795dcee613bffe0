#include "DescriptorBytes.h"

#include <nlohmann/json.hpp>

namespace {

uint8_t lowByte(std::size_t value) {
    return static_cast<uint8_t>(value & 0xFF);
}
uint8_t highByte(std::size_t value) {
    return static_cast<uint8_t>(value >> 8 & 0xFF);
}

}  // namespace

DescriptorBytes joined(std::initializer_list<DescriptorBytes> parts) {
    DescriptorBytes all;
    for (const DescriptorBytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

DescriptorBytes interfaceBytes(uint8_t number, uint8_t interfaceClass, uint8_t subClass) {
    return {9, 4, number, 0, 0, interfaceClass, subClass, 0, 0};
}

DescriptorBytes endpointBytes(uint8_t address, uint8_t attributes, uint16_t maxPacketSize) {
    return {7, 5, address, attributes, lowByte(maxPacketSize), highByte(maxPacketSize), 0};
}

DescriptorBytes configurationBytes(std::initializer_list<DescriptorBytes> parts,
                                   std::optional<uint16_t> claimedLength) {
    DescriptorBytes all{9, 2, 0, 0, 1, 1, 0, 0x80, 50};
    const DescriptorBytes rest = joined(parts);
    all.insert(all.end(), rest.begin(), rest.end());
    const std::size_t claimed = claimedLength.value_or(all.size());
    all[2] = lowByte(claimed);
    all[3] = highByte(claimed);
    return all;
}

std::string hexOf(const DescriptorBytes& bytes) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

std::string merged(std::initializer_list<std::string> patches) {
    nlohmann::json all = nlohmann::json::object();
    for (const std::string& patch : patches) {
        all.merge_patch(nlohmann::json::parse(patch));
    }
    return all.dump();
}

std::string rawConfiguration(const DescriptorBytes& bytes) {
    return nlohmann::json{{"rawConfigurationDescriptors", {hexOf(bytes)}}}.dump();
}

std::string configurationReply(const DescriptorBytes& bytes) {
    return descriptorReply(2, 0, bytes);
}

std::string descriptorReply(uint8_t type, uint8_t index, const DescriptorBytes& reply) {
    nlohmann::json rule;
    rule["requestType"] = 0x80;
    rule["request"] = 6;
    rule["value"] = type << 8 | index;
    rule["reply"] = hexOf(reply);
    return nlohmann::json{{"control", nlohmann::json::array({rule})}}.dump();
}

std::vector<Endpoint> endpointsOf(const tagUSB_ENDPOINT_INFO (&endpoints)[kMaxEndpoints]) {
    std::vector<Endpoint> all;
    for (const tagUSB_ENDPOINT_INFO& each : endpoints) {
        all.push_back({each.address, each.direction, each.attributes, each.maxPacketSize});
    }
    return all;
}

DescriptorBytes configurationOf(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return {entry.configDescriptor, entry.configDescriptor + entry.configDescriptorLength};
}
