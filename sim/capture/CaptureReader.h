// The walk through the bytes of a capture file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ByteOrder.h"
#include "CaptureFile.h"

namespace simbus::capture {

constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t kBlockOverhead = 12;  ///< bytes of a block for its type and, twice, its size
constexpr std::uint16_t kTimeResolution = 9;  ///< an option of an interface

class CaptureReader {
 public:
    /// Reads the file of the capture and fills in its packets and problems.
    explicit CaptureReader(Capture& capture) : capture_(capture) {}
    void read();

 private:
    /// Of a section of pcapng: where its packets come from. A pcap file has one.
    struct Interface {
        std::uint32_t linkType = 0;
        std::uint8_t resolution = 6;  ///< of times, as in pcapng: 10 or, with the highest bit, 2 to the power
                                      ///< of minus this
        bool refused = false;         ///< it was said that its link type is not read
    };

    void readPcap(bool bigEndian, bool inNanoseconds);
    void readPcapng();
    /// Each of these returns false at what the rest of the file cannot be read after.
    bool readBlock(std::size_t& at);
    bool readBody(std::uint32_t type, ByteReader body);
    void readInterface(ByteReader body);
    void readEnhancedPacket(ByteReader body);
    void readSimplePacket(ByteReader body);
    void addPacket(Interface& from, std::uint64_t time, ByteReader bytes);
    void addPacketOf(std::uint32_t interface, std::uint64_t time, ByteReader bytes);
    void complain(const std::string& problem);
    ByteReader from(std::size_t at) const;

    Capture& capture_;
    bool bigEndian_ = false;
    std::uint64_t number_ = 0;  ///< of the latest packet
    std::vector<Interface> interfaces_;
};

}  // namespace simbus::capture
