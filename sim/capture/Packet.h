// One packet of a capture: an event of one transfer, as the Linux kernel's usbmon describes it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace simbus::capture {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kSecond = 1'000'000'000;  ///< in nanoseconds

enum class Event : char {
    submission = 'S',
    completion = 'C',
    refusal = 'E'  ///< the submission has failed, and there is no completion
};

/// The kind of a transfer; the numbers are usbmon's.
enum class Kind : std::uint8_t { isochronous = 0, interrupt = 1, control = 2, bulk = 3 };

/// What a status means; the numbers are Linux's, negated.
enum StatusCode : std::int32_t {
    statusCompleted = 0,
    statusCancelled = -2,  ///< by the program, also after its time-out
    statusNoDevice = -19,
    statusStall = -32,
    statusError = -71,  ///< any other error
    statusOverflow = -75,
    statusUnlinked = -104,    ///< cancelled, in captures of the kernel
    statusShutdown = -108,    ///< no device any more, in captures of the kernel
    statusInProgress = -115,  ///< of every submission
    statusShort =
        -121  ///< less than was asked for, in captures of the kernel, of one piece of a longer transfer
};

/// One packet of an isochronous transfer.
struct IsochronousPacket {
    std::int32_t status = 0;
    std::uint32_t offset = 0;  ///< in the data
    std::uint32_t length = 0;
};

struct Packet {
    std::uint64_t number = 0;  ///< in its file, from 1
    std::uint64_t urb = 0;     ///< the same in the submission and the completion of one transfer
    Event event = Event::submission;
    Kind kind = Kind::control;
    std::uint8_t endpoint = 0;  ///< address with direction bit; 0 or 0x80 for a control transfer
    std::uint16_t bus = 0;
    std::uint8_t device = 0;        ///< address on the bus
    std::uint64_t nanoseconds = 0;  ///< since 1970
    std::int32_t status = statusInProgress;
    std::uint32_t length = 0;  ///< bytes requested, in a submission; bytes transferred, in a completion
    std::optional<std::array<std::uint8_t, 8>> setup;  ///< of the submission of a control transfer
    std::vector<IsochronousPacket> isochronous;

    /// What the host sends, in a submission; what the device has sent, in a completion. Not owned.
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    bool cut = false;  ///< the capture has less than what was sent

    bool isIn() const { return (endpoint & 0x80U) != 0; }
    Bytes bytes() const { return size == 0 ? Bytes() : Bytes(data, data + size); }
};

/// Longer data than this does not fit into one packet: programs refuse to read packets above 256 KiB.
constexpr std::size_t kMostData = std::size_t{128} * 1024;

}  // namespace simbus::capture
