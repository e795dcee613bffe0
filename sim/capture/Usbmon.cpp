#include "Usbmon.h"

#include <algorithm>

namespace simbus::capture {

namespace {

constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kShortHeaderSize = 48;
constexpr std::size_t kIsochronousSize = 16;
constexpr std::uint8_t kPresent = 0;  // of the two flags
constexpr std::uint8_t kNoSetup = '-';

/// Data moves with the submission to the device, with the completion from it.
bool carriesData(const Packet& packet) {
    return packet.isIn() ? packet.event == Event::completion : packet.event == Event::submission;
}

const char* readFields(ByteReader& reader, Packet& packet, std::uint8_t& setupFlag) {
    packet.urb = reader.number<std::uint64_t>();
    const auto event = reader.number<std::uint8_t>();
    const auto kind = reader.number<std::uint8_t>();
    if (event != 'S' && event != 'C' && event != 'E') {
        return "it is no event of usbmon";
    }
    if (kind > static_cast<std::uint8_t>(Kind::bulk)) {
        return "it is no kind of transfer";
    }
    packet.event = static_cast<Event>(event);
    packet.kind = static_cast<Kind>(kind);
    packet.endpoint = reader.number<std::uint8_t>();
    packet.device = reader.number<std::uint8_t>();
    packet.bus = reader.number<std::uint16_t>();
    setupFlag = reader.number<std::uint8_t>();
    constexpr std::size_t kDataFlagAndTime = 1 + 8 + 4;
    reader.skip(kDataFlagAndTime);
    packet.status = reader.number<std::int32_t>();
    packet.length = reader.number<std::uint32_t>();
    return nullptr;
}

const char* readIsochronous(ByteReader& reader, std::uint32_t count, Packet& packet) {
    if (count > reader.left() / kIsochronousSize) {
        return "its isochronous packets are cut";
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        IsochronousPacket& each = packet.isochronous.emplace_back();
        each.status = reader.number<std::int32_t>();
        each.offset = reader.number<std::uint32_t>();
        each.length = reader.number<std::uint32_t>();
        reader.skip(4);
    }
    return nullptr;
}

}  // namespace

const char* readUsbmon(ByteReader reader, bool isShort, Packet& packet) {
    if (reader.left() < (isShort ? kShortHeaderSize : kHeaderSize)) {
        return "it is shorter than the header of usbmon";
    }
    std::uint8_t setupFlag = 0;
    if (const char* problem = readFields(reader, packet, setupFlag); problem != nullptr) {
        return problem;
    }
    reader.skip(4);  // how much is captured: everything that is there
    const std::uint8_t* setup = reader.bytes(8);
    if (packet.kind == Kind::control && packet.event == Event::submission && setupFlag == kPresent) {
        packet.setup.emplace();
        std::copy_n(setup, packet.setup->size(), packet.setup->begin());
    }
    if (!isShort) {
        constexpr std::size_t kIntervalFrameAndFlags = 12;
        reader.skip(kIntervalFrameAndFlags);
        const auto count = reader.number<std::uint32_t>();
        const bool isIsochronous = packet.kind == Kind::isochronous;
        if (const char* problem = readIsochronous(reader, isIsochronous ? count : 0, packet);
            problem != nullptr) {
            return problem;
        }
    }
    packet.size = reader.left();
    packet.data = reader.bytes(packet.size);
    packet.cut = carriesData(packet) && packet.size < packet.length;
    return nullptr;
}

std::size_t usbmonSize(const Packet& packet) {
    return kHeaderSize + packet.isochronous.size() * kIsochronousSize + packet.size;
}

void writeUsbmon(ByteWriter& writer, const Packet& packet) {
    const std::size_t count = packet.isochronous.size();
    const auto dataFlag = packet.size != 0 || packet.length == 0
                              ? std::uint8_t{kPresent}
                              : static_cast<std::uint8_t>(packet.isIn() ? '<' : '>');
    writer.number(packet.urb)
        .number(static_cast<std::uint8_t>(packet.event))
        .number(static_cast<std::uint8_t>(packet.kind))
        .number(packet.endpoint)
        .number(packet.device)
        .number(packet.bus)
        .number(packet.setup ? kPresent : kNoSetup)
        .number(dataFlag)
        .number(packet.nanoseconds / kSecond)
        .number(static_cast<std::uint32_t>(packet.nanoseconds % kSecond / 1000))
        .number(packet.status)
        .number(packet.length)
        .number(static_cast<std::uint32_t>(packet.size + count * kIsochronousSize));
    if (packet.setup) {
        writer.bytes(packet.setup->data(), packet.setup->size());
    } else {
        writer.number(std::uint32_t{0}).number(static_cast<std::uint32_t>(count));
    }
    constexpr std::size_t kIntervalFrameAndFlags = 12;
    writer.zeroes(kIntervalFrameAndFlags).number(static_cast<std::uint32_t>(count));
    for (const IsochronousPacket& each : packet.isochronous) {
        writer.number(each.status).number(each.offset).number(each.length).zeroes(4);
    }
    writer.bytes(packet.data, packet.size);
}

}  // namespace simbus::capture
