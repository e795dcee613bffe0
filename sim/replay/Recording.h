// What a capture says about devices: their descriptors, and what was exchanged with them, in its order.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bus/DescriptorTypes.h"
#include "capture/CaptureFile.h"

namespace simbus::replay {

using capture::Bytes;
using capture::Kind;
using SetupBytes = std::array<std::uint8_t, 8>;

/// One transfer, and how the device has ended it.
struct Exchange {
    enum class End {
        completed,
        stall,
        silent,  ///< it was cancelled, by the program or a time-out, or the capture ends before it
        gone     ///< the device was unplugged
    };
    std::uint64_t packet = 0;  ///< the number of its submission
    Kind kind = Kind::control;
    std::uint8_t endpoint = 0;  ///< address with direction bit
    SetupBytes setup{};         ///< of a control transfer
    std::size_t length = 0;     ///< bytes that the host had for the device, or asked for
    Bytes sent;                 ///< by the host; less than `length` where the capture has less
    Bytes answered;             ///< by the device
    std::size_t missing = 0;    ///< bytes behind these that the device has sent and the capture does not have
    End end = End::silent;
    /// Of a request or OUT transfer: its number among them, from 1. Of an IN transfer: the number of the last
    /// one that had begun before its end. It may answer that one; none of them can have waited for it.
    std::size_t after = 0;

    bool isIn() const { return (endpoint & 0x80U) != 0; }
};

/// The number of bytes that a control request is for.
std::size_t askedBy(const SetupBytes& setup);
/// What the device has sent, with zeroes for what is missing: at most as many bytes as are asked for.
Bytes answerOf(const Exchange& exchange, std::size_t asked);

struct RecordedDevice {
    std::uint16_t bus = 0;
    std::uint8_t address = 0;
    Bytes descriptor;
    std::map<std::uint8_t, Bytes> configurations;  ///< by index
    std::map<std::uint8_t, Bytes> strings;  ///< whole descriptors by index; 0 is the table of languages
    std::map<std::uint8_t, Bytes> reports;  ///< report descriptors by interface
    std::vector<Exchange> exchanges;        ///< without those that the descriptors answer

    std::string id() const { return std::to_string(bus) + "-" + std::to_string(address); }
};

struct Recording {
    std::vector<RecordedDevice> devices;  ///< those that can be replayed, in the order of their addresses
    std::vector<std::string> problems;    ///< of the file, and what cannot be replayed
};

Recording recordingOf(const capture::Capture& capture);

/// An endpoint of a configuration, in one of the settings of its interface.
struct EndpointPlace {
    std::uint8_t address = 0;
    std::uint8_t attributes = 0;  ///< the type is in the lowest two bits
    std::uint8_t interface = 0;
    std::uint8_t interfaceClass = 0;
};
/// Of all configurations.
std::vector<EndpointPlace> endpointsOf(const RecordedDevice& device);

/// Whether the descriptors of the device answer this request, or the bus does for every device.
bool isAnsweredByDescriptors(const SetupBytes& setup);

}  // namespace simbus::replay
