// Capture files: what is written is read back, and what is wrong with a file is said with the packet's
// number.
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "capture/ByteOrder.h"
#include "capture/CaptureFile.h"

namespace {

using namespace simbus::capture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint64_t kTime = 1'763'829'000'123'456'789;

Packet packetOf(std::uint64_t urb, Event event, std::uint8_t endpoint, const Bytes& data) {
    Packet packet;
    packet.urb = urb;
    packet.event = event;
    packet.kind = Kind::bulk;
    packet.endpoint = endpoint;
    packet.bus = 3;
    packet.device = 17;
    packet.nanoseconds = kTime;
    packet.status = event == Event::submission ? statusInProgress : statusCompleted;
    packet.length = static_cast<std::uint32_t>(data.size());
    packet.data = data.data();
    packet.size = data.size();
    return packet;
}

void add(Bytes& file, const Packet& packet) {
    const std::size_t at = file.size();
    file.resize(at + blockSize(packet));
    writeBlock(file.data() + at, packet);
}

/// Two packets: a write of three bytes and its completion.
Bytes writeOfThreeBytes() {
    Bytes file = captureHeader("a test");
    const Bytes data = {1, 2, 3};
    add(file, packetOf(7, Event::submission, 0x01, data));
    Packet end = packetOf(7, Event::completion, 0x01, {});
    end.length = 3;
    add(file, end);
    return file;
}

/// Builds files in the byte order and formats that this project does not write.
class ForeignFile {
 public:
    explicit ForeignFile(bool bigEndian) : bigEndian_(bigEndian) {}

    template <class Number>
    ForeignFile& number(Number value) {
        for (std::size_t i = 0; i < sizeof(Number); ++i) {
            const std::size_t shift = 8 * (bigEndian_ ? sizeof(Number) - 1 - i : i);
            bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> shift));
        }
        return *this;
    }
    /// The short header of usbmon, for a completed read of two bytes.
    ForeignFile& usbmon() {
        number(std::uint64_t{9});
        for (const int byte : {int{'C'}, 3, 0x81, 17}) {
            number(static_cast<std::uint8_t>(byte));
        }
        number(std::uint16_t{3}).number(std::uint8_t{'-'}).number(std::uint8_t{0});
        number(std::int64_t{5}).number(std::int32_t{6}).number(std::int32_t{0});
        number(std::uint32_t{2}).number(std::uint32_t{2}).number(std::uint64_t{0});
        return *this;
    }
    ForeignFile& pcapHeader(std::uint32_t magic, std::uint32_t linkType) {
        number(magic).number(std::uint16_t{2}).number(std::uint16_t{4});
        return number(std::uint64_t{0}).number(std::uint32_t{65535}).number(linkType);
    }
    ForeignFile& section() {
        number(std::uint32_t{0x0A0D0D0A}).number(std::uint32_t{28}).number(std::uint32_t{0x1A2B3C4D});
        return number(std::uint32_t{0x00010000}).number(std::int64_t{-1}).number(std::uint32_t{28});
    }
    ForeignFile& interface(std::uint16_t linkType) {
        number(std::uint32_t{1}).number(std::uint32_t{20}).number(linkType).number(std::uint16_t{0});
        return number(std::uint32_t{0}).number(std::uint32_t{20});
    }
    /// A packet with the short header and two bytes, padded to 52.
    ForeignFile& packet(std::uint32_t interface, std::uint64_t time) {
        constexpr std::uint32_t kSize = 12 + 20 + 52;
        number(std::uint32_t{6}).number(kSize).number(interface);
        number(static_cast<std::uint32_t>(time >> 32U)).number(static_cast<std::uint32_t>(time));
        number(std::uint32_t{50}).number(std::uint32_t{50}).usbmon();
        return number(std::uint8_t{0xAA}).number(std::uint8_t{0xBB}).number(std::uint16_t{0}).number(kSize);
    }

    Bytes bytes;

 private:
    bool bigEndian_;
};

std::vector<std::string> problemsOf(Bytes file) {
    return readCapture(std::move(file)).problems;
}

TEST(Capture, WhatIsWrittenIsReadBack) {
    const Capture capture = readCapture(writeOfThreeBytes());
    EXPECT_THAT(capture.problems, IsEmpty());
    ASSERT_THAT(capture.packets, SizeIs(2));
    const Packet& start = capture.packets[0];
    EXPECT_EQ(start.number, 1U);
    EXPECT_EQ(start.urb, 7U);
    EXPECT_EQ(start.event, Event::submission);
    EXPECT_EQ(start.kind, Kind::bulk);
    EXPECT_EQ(start.endpoint, 0x01);
    EXPECT_EQ(start.bus, 3);
    EXPECT_EQ(start.device, 17);
    EXPECT_EQ(start.nanoseconds, kTime);
    EXPECT_EQ(start.status, statusInProgress);
    EXPECT_EQ(start.length, 3U);
    EXPECT_FALSE(start.setup);
    EXPECT_THAT(start.bytes(), ElementsAre(1, 2, 3));
    EXPECT_FALSE(start.cut);
    EXPECT_EQ(capture.packets[1].number, 2U);
    EXPECT_EQ(capture.packets[1].event, Event::completion);
    EXPECT_EQ(capture.packets[1].status, statusCompleted);
    EXPECT_THAT(capture.packets[1].bytes(), IsEmpty());
}

TEST(Capture, KeepsSetupOfControlTransfersAndIsochronousPackets) {
    Bytes file = captureHeader("");
    Packet request = packetOf(1, Event::submission, 0x80, {});
    request.kind = Kind::control;
    request.setup = {0x80, 6, 0, 1, 0, 0, 18, 0};
    add(file, request);
    const Bytes samples = {1, 2, 3, 4};
    Packet stream = packetOf(2, Event::completion, 0x82, samples);
    stream.kind = Kind::isochronous;
    stream.isochronous = {{0, 0, 3}, {statusStall, 3, 1}};
    add(file, stream);

    const Capture capture = readCapture(file);
    EXPECT_THAT(capture.problems, IsEmpty());
    ASSERT_THAT(capture.packets, SizeIs(2));
    EXPECT_EQ(capture.packets[0].setup, request.setup);
    ASSERT_THAT(capture.packets[1].isochronous, SizeIs(2));
    EXPECT_EQ(capture.packets[1].isochronous[1].status, statusStall);
    EXPECT_EQ(capture.packets[1].isochronous[1].offset, 3U);
    EXPECT_EQ(capture.packets[1].isochronous[1].length, 1U);
    EXPECT_THAT(capture.packets[1].bytes(), ElementsAre(1, 2, 3, 4));
}

TEST(Capture, ReadsBothByteOrdersOfPcapng) {
    for (const bool bigEndian : {false, true}) {
        ForeignFile file(bigEndian);
        file.section().interface(189).packet(0, 5'000'006);
        const Capture capture = readCapture(file.bytes);
        EXPECT_THAT(capture.problems, IsEmpty());
        ASSERT_THAT(capture.packets, SizeIs(1)) << bigEndian;
        EXPECT_EQ(capture.packets[0].urb, 9U);
        EXPECT_EQ(capture.packets[0].bus, 3);
        EXPECT_EQ(capture.packets[0].nanoseconds, 5'000'006'000U);
        EXPECT_THAT(capture.packets[0].bytes(), ElementsAre(0xAA, 0xBB));
    }
}

TEST(Capture, ReadsPcapInBothByteOrdersAndUnitsOfTime) {
    for (const bool bigEndian : {false, true}) {
        for (const bool nanoseconds : {false, true}) {
            ForeignFile file(bigEndian);
            file.pcapHeader(nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4, 189);
            file.number(std::uint32_t{5}).number(std::uint32_t{6});
            file.number(std::uint32_t{50}).number(std::uint32_t{50}).usbmon().number(std::uint16_t{0});
            const Capture capture = readCapture(file.bytes);
            EXPECT_THAT(capture.problems, IsEmpty());
            ASSERT_THAT(capture.packets, SizeIs(1));
            EXPECT_EQ(capture.packets[0].nanoseconds, nanoseconds ? 5'000'000'006U : 5'000'006'000U);
            EXPECT_EQ(capture.packets[0].endpoint, 0x81);
        }
    }
}

TEST(Capture, SaysWhereAFileWasCutAndReadsWhatIsBefore) {
    const Bytes whole = writeOfThreeBytes();
    const std::size_t start = captureHeader("a test").size();
    const std::size_t second = whole.size() - (12 + 20 + 64);
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const Capture capture = readCapture(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
        EXPECT_EQ(capture.packets.size(), size >= second ? 1U : 0U) << size;
        const bool atABoundary = size == start || size == second || size == start - 32;
        EXPECT_EQ(capture.problems.empty(), atABoundary) << size;
    }
    EXPECT_THAT(problemsOf(Bytes(whole.begin(), whole.end() - 1)),
                ElementsAre("packet 2: the file ends in the middle of a block"));
}

TEST(Capture, SaysThatItIsNoCapture) {
    EXPECT_THAT(problemsOf({}), ElementsAre("the file is neither pcapng nor pcap"));
    EXPECT_THAT(problemsOf({'{', '}', '\n', ' ', ' '}), ElementsAre("the file is neither pcapng nor pcap"));
}

TEST(Capture, PassesOverPacketsOfOtherLinkTypes) {
    ForeignFile file(false);
    file.section().interface(1).interface(189).packet(0, 1).packet(0, 2).packet(1, 3).packet(2, 4);
    const Capture capture = readCapture(file.bytes);
    ASSERT_THAT(capture.packets, SizeIs(1));
    EXPECT_EQ(capture.packets[0].number, 3U);
    EXPECT_THAT(capture.problems, ElementsAre(HasSubstr("packet 1: it has the link type 1;"),
                                              "packet 4: it is of interface 2, which is not described"));
}

TEST(Capture, SaysWhatIsWrongWithAPacket) {
    const std::size_t packetAt = captureHeader("a test").size() + 28;
    Bytes file = writeOfThreeBytes();
    file[packetAt + 8] = 'X';
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: it is no event of usbmon"));
    file = writeOfThreeBytes();
    file[packetAt + 9] = 4;
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: it is no kind of transfer"));
    file[packetAt + 9] = 0;
    file[packetAt + 60] = 200;
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: its isochronous packets are cut"));
}

TEST(Capture, DoesNotTrustTheSizesOfBlocks) {
    const std::size_t blockAt = captureHeader("a test").size();
    Bytes file = writeOfThreeBytes();
    file[blockAt + 4] = 0;
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: a block has the impossible size 0"));
    file = writeOfThreeBytes();
    file[blockAt + 4] = static_cast<std::uint8_t>(file[blockAt + 4] - 4);
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: a block has two sizes"));
    file = writeOfThreeBytes();
    file[blockAt + 20] = 0xFF;
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: it is longer than its block"));
    file[blockAt + 20] = 10;
    EXPECT_THAT(problemsOf(file), ElementsAre("packet 1: it is shorter than the header of usbmon"));
}

TEST(Capture, PassesOverAnOptionThatIsLongerThanItsBlock) {
    ForeignFile file(false);
    file.section();
    file.number(std::uint32_t{1})
        .number(std::uint32_t{28})
        .number(std::uint16_t{189})
        .number(std::uint16_t{0});
    file.number(std::uint32_t{0}).number(std::uint16_t{2}).number(std::uint16_t{5}).number(std::uint32_t{0});
    file.number(std::uint32_t{28}).packet(0, 1);
    const Capture capture = readCapture(file.bytes);
    EXPECT_THAT(capture.problems, IsEmpty());
    EXPECT_THAT(capture.packets, SizeIs(1));
}

TEST(Capture, TellsWhenTheDataOfAPacketAreCut) {
    Bytes file = captureHeader("");
    const Bytes data = {1, 2, 3};
    Packet write = packetOf(1, Event::submission, 0x01, data);
    write.length = 1000;
    add(file, write);
    Packet read = packetOf(2, Event::submission, 0x81, {});
    read.length = 1000;
    add(file, read);
    const Capture capture = readCapture(file);
    ASSERT_THAT(capture.packets, SizeIs(2));
    EXPECT_TRUE(capture.packets[0].cut);
    EXPECT_FALSE(capture.packets[1].cut);
}

TEST(Capture, ListsNoMoreThanAHundredProblems) {
    ForeignFile file(false);
    file.section();
    for (std::uint32_t i = 0; i < 200; ++i) {
        file.packet(i, 0);
    }
    EXPECT_THAT(problemsOf(file.bytes), SizeIs(100));
}

TEST(Capture, AFileThatIsNotThereIsNotRead) {
    EXPECT_THROW(readCaptureFile("/no/such/file"), std::runtime_error);
    EXPECT_THROW(readCaptureFile("/"), std::runtime_error);
}

}  // namespace
