#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "ground/DeviceRecords.h"

// Descriptors byte by byte, right ones and wrong ones, and what the library made of them.

using DescriptorBytes = std::vector<uint8_t>;

DescriptorBytes joined(std::initializer_list<DescriptorBytes> parts);
/// A descriptor of interface `number`, alternate setting 0, vendor-specific with subclass 0xFF unless told
/// otherwise. Its number of endpoints, which the library does not look at, is 0 whatever follows, and so is
/// its string index.
DescriptorBytes interfaceBytes(uint8_t number, uint8_t interfaceClass = 0xFF, uint8_t subClass = 0xFF);
/// An endpoint descriptor; bulk of 64 bytes unless told otherwise.
DescriptorBytes endpointBytes(uint8_t address, uint8_t attributes = 2, uint16_t maxPacketSize = 64);
/// A configuration of value 1 with these parts behind its own descriptor; its total length is what it is,
/// unless another is to be claimed.
DescriptorBytes configurationBytes(std::initializer_list<DescriptorBytes> parts,
                                   std::optional<uint16_t> claimedLength = std::nullopt);

std::string hexOf(const DescriptorBytes& bytes);
/// Several merge patches in one; a later one overrides the ones before it.
std::string merged(std::initializer_list<std::string> patches);
/// A merge patch for deviceJson: the device gives the host these bytes as its configuration of index 0. A
/// host that cannot parse them has no configuration.
std::string rawConfiguration(const DescriptorBytes& bytes);
/// A merge patch for deviceJson: its answer to a standard request for the descriptor `type` of `index` is
/// `reply`, whatever it says elsewhere.
std::string descriptorReply(uint8_t type, uint8_t index, const DescriptorBytes& reply);
/// The same for its configuration of index 0.
std::string configurationReply(const DescriptorBytes& bytes);

/// One endpoint of a record: address, direction, attributes, maxPacketSize.
using Endpoint = std::array<int32_t, 4>;
constexpr Endpoint kUnusedEndpoint{-1, -1, -1, -1};

/// All sixteen entries of a record's endpoints.
std::vector<Endpoint> endpointsOf(const tagUSB_ENDPOINT_INFO (&endpoints)[kMaxEndpoints]);
/// The bytes of a record's configuration that are valid.
DescriptorBytes configurationOf(const tagUSB_DEVICE_ACCESS_ENTRY& entry);
