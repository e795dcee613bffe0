// Captures for somebody else: without serial numbers, or without what was transferred.
#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "capture/Anonymous.h"
#include "capture/CaptureFile.h"

namespace {

using namespace simbus::capture;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

Bytes wide(const std::string& text) {
    Bytes bytes;
    for (const char character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

Bytes stringDescriptor(const std::string& text) {
    Bytes bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    const Bytes characters = wide(text);
    bytes.insert(bytes.end(), characters.begin(), characters.end());
    return bytes;
}

/// A capture of devices on bus 1, each of whose transfers is complete.
class Session {
 public:
    /// The device descriptor names the string with the serial number.
    Session& device(std::uint8_t address, std::uint8_t serialNumber) {
        Bytes descriptor(18);
        descriptor[16] = serialNumber;
        return request(address, {0x80, 6, 0, 1, 0, 0, 18, 0}, descriptor);
    }
    Session& string(std::uint8_t address, std::uint8_t index, const std::string& text) {
        return request(address, {0x80, 6, index, 3, 9, 4, 255, 0}, stringDescriptor(text));
    }
    Session& request(std::uint8_t address, std::array<std::uint8_t, 8> setup, const Bytes& answer) {
        Packet packet;
        packet.setup = setup;
        return transfer(address, packet, setup[0] & 0x80U, answer);
    }
    Session& bulk(std::uint8_t address, std::uint8_t endpoint, const Bytes& data) {
        Packet packet;
        packet.kind = Kind::bulk;
        return transfer(address, packet, endpoint, data);
    }
    Capture capture() const { return readCapture(captureOf("a test", packets_)); }

 private:
    Session& transfer(std::uint8_t address, Packet packet, std::uint8_t endpoint, const Bytes& data) {
        kept_.push_back(data);
        packet.urb = kept_.size();
        packet.bus = 1;
        packet.device = address;
        packet.endpoint = endpoint;
        packet.length = static_cast<std::uint32_t>(data.size());
        Packet end = packet;
        end.event = Event::completion;
        end.status = statusCompleted;
        end.setup.reset();
        Packet& carrier = packet.isIn() ? end : packet;
        carrier.data = kept_.back().data();
        carrier.size = data.size();
        packets_.insert(packets_.end(), {packet, end});
        return *this;
    }

    std::deque<Bytes> kept_;
    std::vector<Packet> packets_;
};

/// What the transfer has moved, from 0.
Bytes moved(const Capture& capture, std::size_t transfer) {
    const Packet& start = capture.packets.at(2 * transfer);
    return start.isIn() ? capture.packets.at(2 * transfer + 1).bytes() : start.bytes();
}

TEST(Anonymous, SerialNumbersBecomeZeroes) {
    Capture capture =
        Session().device(5, 3).string(5, 2, "Probe").string(5, 3, "SN123456").string(5, 3, "").capture();
    blankSerialNumbers(capture);
    EXPECT_EQ(moved(capture, 0)[16], 3);
    EXPECT_THAT(moved(capture, 1), ElementsAreArray(stringDescriptor("Probe")));
    EXPECT_THAT(moved(capture, 2), ElementsAreArray(stringDescriptor("00000000")));
    EXPECT_THAT(moved(capture, 3), ElementsAreArray(stringDescriptor("")));
}

TEST(Anonymous, SerialNumbersBecomeZeroesWhereverTheyOccurAsText) {
    Capture capture = Session()
                          .device(5, 3)
                          .string(5, 3, "SN12")
                          .bulk(5, 0x01, bytesOf("id=SN12;SN12SN1"))
                          .bulk(6, 0x81, wide("<SN12>"))
                          .string(6, 3, "SN12")
                          .capture();
    blankSerialNumbers(capture);
    EXPECT_THAT(moved(capture, 2), ElementsAreArray(bytesOf("id=0000;0000SN1")));
    EXPECT_THAT(moved(capture, 3), ElementsAreArray(wide("<0000>")));
    EXPECT_THAT(moved(capture, 4), ElementsAreArray(stringDescriptor("0000")));
}

TEST(Anonymous, AShortSerialNumberIsLeftInData) {
    Capture capture = Session().device(5, 3).string(5, 3, "SN1").bulk(5, 0x01, bytesOf("SN1")).capture();
    blankSerialNumbers(capture);
    EXPECT_THAT(moved(capture, 1), ElementsAreArray(stringDescriptor("000")));
    EXPECT_THAT(moved(capture, 2), ElementsAreArray(bytesOf("SN1")));
}

TEST(Anonymous, ADeviceWithoutSerialNumberKeepsItsStrings) {
    Capture capture = Session().device(5, 0).string(5, 0, "Text").string(5, 3, "More").capture();
    blankSerialNumbers(capture);
    EXPECT_THAT(moved(capture, 1), ElementsAreArray(stringDescriptor("Text")));
    EXPECT_THAT(moved(capture, 2), ElementsAreArray(stringDescriptor("More")));
}

TEST(Anonymous, WithoutDataOnlyStandardRequestsHaveThem) {
    Capture capture = Session()
                          .device(5, 3)
                          .request(5, {0xC0, 6, 0, 1, 0, 0, 4, 0}, bytesOf("four"))
                          .bulk(5, 0x01, bytesOf("out"))
                          .bulk(5, 0x81, bytesOf("in"))
                          .capture();
    omitData(capture);
    const Capture written = readCapture(captureOf("a test", capture.packets));
    EXPECT_THAT(written.problems, IsEmpty());
    EXPECT_EQ(moved(written, 0).size(), 18U);
    for (const std::size_t transfer : {1U, 2U, 3U}) {
        EXPECT_THAT(moved(written, transfer), IsEmpty()) << transfer;
    }
    EXPECT_EQ(written.packets[3].length, 4U);
    EXPECT_EQ(written.packets[4].length, 3U);
    EXPECT_EQ(written.packets[7].length, 2U);
}

}  // namespace
