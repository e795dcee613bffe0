// Capture files: pcapng is written; pcapng and its predecessor pcap are read, as Wireshark, tcpdump and this
// project's recorder write them. Files are untrusted: whatever their bytes are, what is wrong is said with
// the number of the packet, and everything else is read.
#pragma once

#include <string>
#include <vector>

#include "Packet.h"

namespace simbus::capture {

struct Capture {
    Bytes file;  ///< where the data of the packets are
    std::vector<Packet> packets;
    std::vector<std::string> problems;  ///< "packet 12: ...", at most 100 of them
};

/// Takes the bytes of a whole file.
Capture readCapture(Bytes file);
/// Throws std::runtime_error when the file cannot be read.
Capture readCaptureFile(const std::string& path);

/// The beginning of a file: the packets follow it. `program` is what has written it.
Bytes captureHeader(const std::string& program);
/// The size of a packet in a file, a multiple of 4.
std::size_t blockSize(const Packet& packet);
/// Writes blockSize(packet) bytes.
void writeBlock(std::uint8_t* at, const Packet& packet);
/// The bytes of a whole file.
Bytes captureOf(const std::string& program, const std::vector<Packet>& packets);

}  // namespace simbus::capture
