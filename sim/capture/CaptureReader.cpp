#include "CaptureReader.h"

#include "Usbmon.h"

namespace simbus::capture {

namespace {

constexpr std::uint32_t kPcapMicroseconds = 0xA1B2C3D4;
constexpr std::uint32_t kPcapNanoseconds = 0xA1B23C4D;
constexpr std::uint32_t kOldPacketBlock = 2;
constexpr std::uint32_t kSimplePacketBlock = 3;
constexpr std::size_t kMostProblems = 100;

/// Times beyond the year 2554 come out wrong.
std::uint64_t nanosecondsOf(std::uint64_t time, std::uint8_t resolution) {
    constexpr std::uint8_t kPowerOfTwo = 0x80;
    const unsigned exponent = resolution & 0x7FU;
    if ((resolution & kPowerOfTwo) != 0) {
        if (exponent >= 64) {
            return 0;
        }
        const std::uint64_t fraction = time & ((std::uint64_t{1} << exponent) - 1);
        return (time >> exponent) * kSecond +
               static_cast<std::uint64_t>(static_cast<double>(fraction) /
                                          static_cast<double>(std::uint64_t{1} << exponent) * kSecond);
    }
    for (unsigned i = exponent; i < 9; ++i) {
        time *= 10;
    }
    for (unsigned i = 9; i < exponent; ++i) {
        time /= 10;
    }
    return time;
}

}  // namespace

void CaptureReader::read() {
    const auto magic = from(0).number<std::uint32_t>();
    bigEndian_ = true;
    const auto swapped = from(0).number<std::uint32_t>();
    if (magic == kSectionBlock) {
        readPcapng();
    } else if (magic == kPcapMicroseconds || magic == kPcapNanoseconds) {
        readPcap(false, magic == kPcapNanoseconds);
    } else if (swapped == kPcapMicroseconds || swapped == kPcapNanoseconds) {
        readPcap(true, swapped == kPcapNanoseconds);
    } else {
        complain("the file is neither pcapng nor pcap");
    }
}

void CaptureReader::readPcap(bool bigEndian, bool inNanoseconds) {
    bigEndian_ = bigEndian;
    ByteReader file = from(0);
    constexpr std::size_t kUpToLinkType = 20;
    constexpr std::uint32_t kLinkTypeBits = 0x0FFFFFFF;
    file.skip(kUpToLinkType);
    Interface interface;
    interface.linkType = file.number<std::uint32_t>() & kLinkTypeBits;
    interface.resolution = 9;
    if (file.overrun()) {
        complain("the file ends in its header");
        return;
    }
    while (file.left() > 0) {
        const std::uint64_t seconds = file.number<std::uint32_t>();
        const std::uint64_t fraction = file.number<std::uint32_t>();
        const auto captured = file.number<std::uint32_t>();
        file.skip(4);  // its original length
        const ByteReader bytes = file.part(captured);
        ++number_;
        if (file.overrun()) {
            complain("the file ends in the middle of it");
            return;
        }
        addPacket(interface, seconds * kSecond + fraction * (inNanoseconds ? 1 : 1000), bytes);
    }
}

void CaptureReader::readPcapng() {
    std::size_t at = 0;
    while (at < capture_.file.size() && readBlock(at)) {
    }
}

bool CaptureReader::readBlock(std::size_t& at) {
    constexpr std::size_t kMagicAt = 8;
    ByteReader block = from(at);
    const auto type = block.number<std::uint32_t>();
    if (type == kSectionBlock) {
        bigEndian_ = false;
        ByteReader magic = from(at);
        magic.skip(kMagicAt);
        bigEndian_ = magic.number<std::uint32_t>() != kByteOrderMagic;
        block = from(at + 4);
    }
    const auto size = block.number<std::uint32_t>();
    const bool isPacket = type == kPacketBlock || type == kSimplePacketBlock || type == kOldPacketBlock;
    number_ += isPacket ? 1 : 0;
    if (block.overrun() || size > capture_.file.size() - at) {
        complain("the file ends in the middle of a block");
        return false;
    }
    if (size < kBlockOverhead || size % 4 != 0) {
        complain("a block has the impossible size " + std::to_string(size));
        return false;
    }
    const ByteReader body = block.part(size - kBlockOverhead);
    if (block.number<std::uint32_t>() != size) {
        complain("a block has two sizes");
        return false;
    }
    at += size;
    return readBody(type, body);
}

bool CaptureReader::readBody(std::uint32_t type, ByteReader body) {
    switch (type) {
        case kSectionBlock:
            interfaces_.clear();
            if (body.number<std::uint32_t>() != kByteOrderMagic) {
                complain("a section is in no byte order");
                return false;
            }
            break;
        case kInterfaceBlock:
            readInterface(body);
            break;
        case kPacketBlock:
            readEnhancedPacket(body);
            break;
        case kSimplePacketBlock:
            readSimplePacket(body);
            break;
        case kOldPacketBlock:
            complain("packets in blocks of type 2 are not read; editcap writes newer ones");
            break;
        default:  // names, statistics and whatever else there may be
            break;
    }
    return true;
}

void CaptureReader::readInterface(ByteReader body) {
    Interface& interface = interfaces_.emplace_back();
    interface.linkType = body.number<std::uint16_t>();
    body.skip(2 + 4);  // reserved, and the longest packet
    while (body.left() >= 4) {
        const auto option = body.number<std::uint16_t>();
        const auto size = body.number<std::uint16_t>();
        if (option == kTimeResolution && size == 1 && body.left() > 0) {
            interface.resolution = body.part(1).number<std::uint8_t>();
            body.skip(3);
        } else {
            body.skip(size + (4U - size % 4U) % 4U);
        }
    }
}

void CaptureReader::readEnhancedPacket(ByteReader body) {
    const auto interface = body.number<std::uint32_t>();
    const std::uint64_t high = body.number<std::uint32_t>();
    const std::uint64_t low = body.number<std::uint32_t>();
    const auto captured = body.number<std::uint32_t>();
    body.skip(4);  // its original length
    const ByteReader bytes = body.part(captured);
    if (body.overrun()) {
        complain("it is longer than its block");
        return;
    }
    addPacketOf(interface, high << 32U | low, bytes);
}

void CaptureReader::readSimplePacket(ByteReader body) {
    body.skip(4);  // its original length
    addPacketOf(0, 0, body);
}

void CaptureReader::addPacketOf(std::uint32_t interface, std::uint64_t time, ByteReader bytes) {
    if (interface >= interfaces_.size()) {
        complain("it is of interface " + std::to_string(interface) + ", which is not described");
        return;
    }
    addPacket(interfaces_[interface], nanosecondsOf(time, interfaces_[interface].resolution), bytes);
}

void CaptureReader::addPacket(Interface& from, std::uint64_t time, ByteReader bytes) {
    if (from.linkType != kLinkUsbmon && from.linkType != kLinkUsbmonShort) {
        if (!from.refused) {
            complain("it has the link type " + std::to_string(from.linkType) +
                     "; only those of Linux's usbmon are read, 189 and 220");
        }
        from.refused = true;
        return;
    }
    Packet packet;
    packet.number = number_;
    packet.nanoseconds = time;
    if (const char* problem = readUsbmon(bytes, from.linkType == kLinkUsbmonShort, packet);
        problem != nullptr) {
        complain(problem);
        return;
    }
    capture_.packets.push_back(std::move(packet));
}

void CaptureReader::complain(const std::string& problem) {
    if (capture_.problems.size() < kMostProblems) {
        capture_.problems.push_back(number_ == 0 ? problem
                                                 : "packet " + std::to_string(number_) + ": " + problem);
    }
}

ByteReader CaptureReader::from(std::size_t at) const {
    return {capture_.file.data() + at, capture_.file.size() - at, bigEndian_};
}

}  // namespace simbus::capture
