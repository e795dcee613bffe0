// What the host side of a bus looks like in JSON, for a program whose bus is in another process. Reading
// throws std::runtime_error when a value is invalid.
#pragma once

#include "Bus.h"
#include "Json.h"

namespace simbus {

Json toJson(const DeviceInfo& device);
DeviceInfo deviceFrom(const Json& json);

/// As eight bytes, in USB's own order.
Bytes toBytes(const Setup& setup);
Setup setupFrom(const Bytes& bytes);

/// Whether the data stage of a transfer goes to the host.
bool isIn(const Transfer& transfer);

std::string nameOf(Status status);
Status statusFrom(const Json& json, const char* key);

std::string nameOf(Submitted submitted);
Submitted submittedFrom(const Json& json, const char* key);

}  // namespace simbus
