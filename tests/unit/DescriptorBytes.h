#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "ground/DeviceRecords.h"

// Descriptors as bytes, valid and invalid, and what the library parsed from them.

using DescriptorBytes = std::vector<uint8_t>;

DescriptorBytes joined(std::initializer_list<DescriptorBytes> parts);
/// A descriptor of interface `number`, alternate setting 0, by default vendor-specific with subclass 0xFF.
/// Its number of endpoints, which the library does not read, and its string index are 0.
DescriptorBytes interfaceBytes(uint8_t number, uint8_t interfaceClass = 0xFF, uint8_t subClass = 0xFF);
/// An endpoint descriptor; by default bulk with 64 bytes.
DescriptorBytes endpointBytes(uint8_t address, uint8_t attributes = 2, uint16_t maxPacketSize = 64);
/// A configuration of value 1 with these parts after its own descriptor. Its total length is correct unless
/// `claimedLength` is given.
DescriptorBytes configurationBytes(std::initializer_list<DescriptorBytes> parts,
                                   std::optional<uint16_t> claimedLength = std::nullopt);

std::string hexOf(const DescriptorBytes& bytes);
/// Combines merge patches; a later one overrides earlier ones.
std::string merged(std::initializer_list<std::string> patches);
/// A merge patch for deviceJson: the device returns these bytes as its configuration of index 0. A host that
/// cannot parse them has no configuration.
std::string rawConfiguration(const DescriptorBytes& bytes);
/// A merge patch for deviceJson: the device answers a standard request for the descriptor `type` of `index`
/// with `reply`, whatever the rest of its scenario says.
std::string descriptorReply(uint8_t type, uint8_t index, const DescriptorBytes& reply);
/// The same for its configuration of index 0.
std::string configurationReply(const DescriptorBytes& bytes);

/// One endpoint of a record: address, direction, attributes, maxPacketSize.
using Endpoint = std::array<int32_t, 4>;
constexpr Endpoint kUnusedEndpoint{-1, -1, -1, -1};

/// All sixteen endpoint entries of a record.
std::vector<Endpoint> endpointsOf(const tagUSB_ENDPOINT_INFO (&endpoints)[kMaxEndpoints]);
/// The valid bytes of a record's configuration.
DescriptorBytes configurationOf(const tagUSB_DEVICE_ACCESS_ENTRY& entry);
