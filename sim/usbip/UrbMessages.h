// The messages between a Linux kernel's virtual host controller and the process that serves its devices: a
// 48-byte header of big-endian words, followed by the data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bus/Bus.h"

namespace simbus::usbip {

using Header = std::array<std::uint8_t, 48>;

/// A request of the kernel: to start a transfer (an URB), or to unlink one.
struct Request {
    enum class Kind : std::uint32_t { submit = 1, unlink = 2 };

    Kind kind = Kind::submit;
    std::uint32_t number = 0;   ///< of this request; repeated in its answer
    bool in = false;            ///< the data goes to the host; OUT data follows the header
    std::uint8_t endpoint = 0;  ///< with direction bit, but plain 0 for the control endpoint
    /// Of a submit only.
    std::size_t length = 0;      ///< bytes of data
    std::size_t isoPackets = 0;  ///< isochronous only; a 16-byte descriptor for each follows the data
    Setup setup;                 ///< control endpoint only
    /// Of an unlink only.
    std::uint32_t unlinked = 0;  ///< the number of the submit to unlink
};

Request parseRequest(const Header& header);

/// The kernel's number for a speed.
std::uint32_t kernelSpeed(Speed speed);

/// Answers. `status` is 0 or a negative errno. The data of an IN transfer, `actual` bytes, follows its
/// answer.
Header submitAnswer(std::uint32_t number, int status, std::size_t actual);
Header unlinkAnswer(std::uint32_t number, int status);

}  // namespace simbus::usbip
