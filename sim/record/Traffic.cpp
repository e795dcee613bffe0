#include "Traffic.h"

#include <algorithm>
#include <array>

#include "bus/DescriptorTypes.h"

namespace simbus::record {

namespace {

using capture::Event;
using capture::kMostData;
using capture::Packet;

constexpr std::size_t kSetupSize = 8;

bool isIn(const Move& move) {
    return (move.endpoint & 0x80U) != 0;
}

Packet packetOf(const Move& move, Event event, std::uint64_t urb, std::size_t length) {
    Packet packet;
    packet.urb = urb;
    packet.event = event;
    packet.kind = move.kind;
    packet.endpoint = move.endpoint;
    packet.bus = move.place.bus;
    packet.device = move.place.device;
    packet.length = static_cast<std::uint32_t>(length);
    packet.isochronous = move.isochronous;
    if (event == Event::submission && move.setup != nullptr) {
        packet.setup.emplace();
        std::copy_n(move.setup, kSetupSize, packet.setup->begin());
    }
    return packet;
}

void writeStart(const Move& move, std::uint64_t urb, std::size_t at) {
    Packet packet = packetOf(move, Event::submission, urb, move.length - at);
    if (!isIn(move)) {
        packet.data = move.data + at;
        packet.size = std::min(kMostData, move.length - at);
    }
    Journal::instance().write(packet);
}

void writeEnd(const Move& move, std::uint64_t urb, std::size_t at, std::size_t length, std::int32_t status) {
    Packet packet = packetOf(move, Event::completion, urb, length);
    packet.status = status;
    if (isIn(move)) {
        packet.data = move.data + at;
        // Isochronous packets lie where they were asked for, with gaps between them.
        packet.size = std::min(kMostData, move.isochronous.empty() ? length : move.length);
    }
    Journal::instance().write(packet);
}

}  // namespace

std::uint64_t recordStart(const Move& move) {
    const std::uint64_t urb = Journal::instance().nextUrb(1 + move.length / kMostData);
    writeStart(move, urb, 0);
    for (std::size_t at = kMostData; at < move.length && !isIn(move); at += kMostData) {
        writeStart(move, urb + at / kMostData, at);
    }
    return urb;
}

void recordEnd(std::uint64_t urb, const Move& move, std::int32_t status, std::size_t actual) {
    const std::size_t whole = isIn(move) ? actual : move.length;
    std::size_t at = 0;
    do {
        if (at != 0 && isIn(move)) {
            writeStart(move, urb + at / kMostData, at);
        }
        const std::size_t length = std::min(kMostData, actual - std::min(at, actual));
        const bool isLast = at + kMostData >= whole;
        writeEnd(move, urb + at / kMostData, at, length, isLast ? status : capture::statusCompleted);
        at += kMostData;
    } while (at < whole);
}

void recordRefusal(std::uint64_t urb, const Move& move, std::int32_t status) {
    Packet packet = packetOf(move, Event::refusal, urb, move.length);
    packet.status = status;
    Journal::instance().write(packet);
}

void recordRequest(const Place& place, const Request& request, const Bytes& data, std::int32_t status) {
    const auto low = [](std::size_t word) { return static_cast<std::uint8_t>(word & 0xFFU); };
    const auto high = [](std::size_t word) { return static_cast<std::uint8_t>(word >> 8U & 0xFFU); };
    const std::array<std::uint8_t, kSetupSize> setup = {
        request.requestType, request.request,     low(request.value), high(request.value),
        low(request.index),  high(request.index), low(data.size()),   high(data.size())};
    Move move;
    move.place = place;
    move.endpoint = request.requestType & 0x80U;
    move.setup = setup.data();
    move.data = data.data();
    move.length = data.size();
    recordEnd(recordStart(move), move, status, status == capture::statusCompleted ? data.size() : 0);
}

void recordDescriptor(const Place& place, std::uint8_t type, std::uint8_t index,
                      std::uint16_t languageOrInterface, const Bytes& descriptor) {
    constexpr std::uint8_t kGetDescriptor = 6;
    const std::uint8_t requestType = type == reportType ? 0x81 : 0x80;
    recordRequest(
        place,
        {requestType, kGetDescriptor, static_cast<std::uint16_t>(type << 8 | index), languageOrInterface},
        descriptor);
}

}  // namespace simbus::record
