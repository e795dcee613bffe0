#include "UrbMessages.h"

#include <endian.h>

#include <cstring>

namespace simbus::usbip {
namespace {

/// Offsets in the header, in words.
enum Word : std::size_t {
    kind = 0,
    number = 1,
    direction = 3,
    endpoint = 4,
    unlinked = 5,      // unlink
    status = 5,        // both answers
    length = 6,        // submit
    actual = 6,        // answer to a submit
    isoPackets = 8,    // submit
    setupPacket = 10,  // submit, 8 bytes in USB's own order
};

constexpr std::uint32_t kSubmitAnswer = 3;
constexpr std::uint32_t kUnlinkAnswer = 4;

std::uint32_t get(const Header& header, Word word) {
    std::uint32_t value = 0;
    std::memcpy(&value, header.data() + word * sizeof value, sizeof value);
    return be32toh(value);
}

void put(Header& header, Word word, std::uint32_t value) {
    value = htobe32(value);
    std::memcpy(header.data() + word * sizeof value, &value, sizeof value);
}

Setup getSetup(const Header& header) {
    const std::uint8_t* bytes = header.data() + setupPacket * sizeof(std::uint32_t);
    const auto word = [bytes](std::size_t at) {
        return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
    };
    return {bytes[0], bytes[1], word(2), word(4), word(6)};
}

Header answer(std::uint32_t answerKind, std::uint32_t answered, int result) {
    Header header{};
    put(header, kind, answerKind);
    put(header, number, answered);
    put(header, status, static_cast<std::uint32_t>(result));
    return header;
}

}  // namespace

Request parseRequest(const Header& header) {
    Request request;
    request.kind = static_cast<Request::Kind>(get(header, kind));
    request.number = get(header, number);
    request.in = get(header, direction) == 1;
    const auto address = static_cast<std::uint8_t>(get(header, endpoint) & 0x0F);
    request.endpoint = address != 0 && request.in ? address | 0x80 : address;
    if (request.kind == Request::Kind::unlink) {
        request.unlinked = get(header, unlinked);
        return request;
    }
    request.length = get(header, length);
    // Some kernels encode "no isochronous packets" as -1.
    const std::uint32_t packets = get(header, isoPackets);
    request.isoPackets = packets == UINT32_MAX ? 0 : packets;
    request.setup = getSetup(header);
    return request;
}

std::uint32_t kernelSpeed(Speed speed) {
    switch (speed) {
        case Speed::full:
            return 2;
        case Speed::high:
            return 3;
        case Speed::super:
            return 5;
    }
    return 2;
}

Header submitAnswer(std::uint32_t answered, int result, std::size_t bytes) {
    Header header = answer(kSubmitAnswer, answered, result);
    put(header, actual, static_cast<std::uint32_t>(bytes));
    return header;
}

Header unlinkAnswer(std::uint32_t answered, int result) {
    return answer(kUnlinkAnswer, answered, result);
}

}  // namespace simbus::usbip
