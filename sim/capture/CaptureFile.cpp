#include "CaptureFile.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "ByteOrder.h"
#include "CaptureReader.h"
#include "Usbmon.h"

namespace simbus::capture {

namespace {

constexpr std::uint16_t kUserApplication = 4;  // options of blocks
constexpr std::uint8_t kNanoseconds = 9;       // 10 to the power of -9 seconds
constexpr std::size_t kPacketFields = 20;

constexpr std::size_t padded(std::size_t size) {
    return (size + 3) / 4 * 4;
}

void writeSection(ByteWriter& writer, const std::string& program) {
    const auto size = static_cast<std::uint32_t>(kBlockOverhead + 16 + 4 + padded(program.size()) + 4);
    writer.number(kSectionBlock)
        .number(size)
        .number(kByteOrderMagic)
        .number(std::uint16_t{1})  // version 1.0
        .number(std::uint16_t{0})
        .number(std::int64_t{-1})  // of unknown length
        .number(kUserApplication)
        .number(static_cast<std::uint16_t>(program.size()))
        .bytes(reinterpret_cast<const std::uint8_t*>(program.data()), program.size())
        .zeroes(padded(program.size()) - program.size() + 4)
        .number(size);
}

void writeInterface(ByteWriter& writer) {
    constexpr std::uint32_t kSize = kBlockOverhead + 8 + 8 + 4;
    writer.number(kInterfaceBlock)
        .number(kSize)
        .number(static_cast<std::uint16_t>(kLinkUsbmon))
        .number(std::uint16_t{0})
        .number(std::uint32_t{0})  // no limit for packets
        .number(kTimeResolution)
        .number(std::uint16_t{1})
        .number(kNanoseconds)
        .zeroes(3 + 4)
        .number(kSize);
}

}  // namespace

Capture readCapture(Bytes file) {
    Capture capture;
    capture.file = std::move(file);
    CaptureReader(capture).read();
    return capture;
}

Capture readCaptureFile(const std::string& path) {
    if (!std::filesystem::is_regular_file(path)) {
        throw std::runtime_error(path + " is not a file");
    }
    Bytes bytes(std::filesystem::file_size(path));
    std::ifstream stream(path, std::ios::binary);
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));  // it may have become shorter
    if (!stream.is_open() || stream.bad()) {
        throw std::runtime_error(path + " cannot be read");
    }
    return readCapture(std::move(bytes));
}

Bytes captureHeader(const std::string& program) {
    const std::size_t size = kBlockOverhead + 24 + padded(program.size()) + kBlockOverhead + 20;
    Bytes bytes(size);
    ByteWriter writer(bytes.data());
    writeSection(writer, program);
    writeInterface(writer);
    return bytes;
}

std::size_t blockSize(const Packet& packet) {
    return kBlockOverhead + kPacketFields + padded(usbmonSize(packet));
}

void writeBlock(std::uint8_t* at, const Packet& packet) {
    const auto whole = static_cast<std::uint32_t>(blockSize(packet));
    const std::size_t size = usbmonSize(packet);
    ByteWriter writer(at);
    writer.number(kPacketBlock)
        .number(whole)
        .number(std::uint32_t{0})
        .number(static_cast<std::uint32_t>(packet.nanoseconds >> 32U))
        .number(static_cast<std::uint32_t>(packet.nanoseconds))
        .number(static_cast<std::uint32_t>(size))
        .number(static_cast<std::uint32_t>(size));
    writeUsbmon(writer, packet);
    writer.zeroes(padded(size) - size).number(whole);
}

Bytes captureOf(const std::string& program, const std::vector<Packet>& packets) {
    Bytes file = captureHeader(program);
    for (const Packet& packet : packets) {
        const std::size_t at = file.size();
        file.resize(at + blockSize(packet));
        writeBlock(file.data() + at, packet);
    }
    return file;
}

}  // namespace simbus::capture
