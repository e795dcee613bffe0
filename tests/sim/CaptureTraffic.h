// Captures that tests make.
#pragma once

#include <gmock/gmock.h>

#include <list>
#include <utility>

#include "capture/CaptureFile.h"
#include "replay/Recording.h"

namespace simbus::replay {

using capture::Capture;
using capture::Event;
using capture::Packet;

inline const SetupBytes kGetDevice = {0x80, 6, 0, 1, 0, 0, 18, 0};
inline const SetupBytes kGetConfiguration = {0x80, 6, 0, 2, 0, 0, 39, 0};
inline const SetupBytes kAsk = {0xC0, 1, 0, 0, 0, 0, 8, 0};
inline const Bytes kDevice = {18, 1, 0, 2, 0, 0, 0, 64, 0x09, 0x12, 0x01, 0x80, 0, 1, 0, 0, 0, 1};
/// One interface with bulk endpoints 1, out and in, and a second one with 0x82.
inline const Bytes kConfiguration = {9, 2, 48,   0, 2,  1,    0, 0x80, 50,  //
                                     9, 4, 0,    0, 2,  0xFF, 0, 0,    0,  7, 5, 0x01, 2, 64, 0, 0,
                                     7, 5, 0x81, 2, 64, 0,    0,  //
                                     9, 4, 1,    0, 1,  0xFF, 0, 0,    0,  7, 5, 0x82, 2, 64, 0, 0};

/// Makes captures.
class Traffic {
 public:
    Traffic() {
        request(kGetDevice, kDevice);
        request(kGetConfiguration, kConfiguration);
    }
    explicit Traffic(std::uint8_t device) : device_(device) {}

    std::uint64_t begin(Kind kind, std::uint8_t endpoint, const Bytes& sent = {}, std::uint32_t length = 64) {
        Packet& packet = add(Event::submission, kind, endpoint, sent);
        packet.urb = ++urb_;
        packet.length = sent.empty() ? length : static_cast<std::uint32_t>(sent.size());
        return urb_;
    }
    void end(std::uint64_t urb, const Bytes& answered = {}, std::int32_t status = 0) {
        for (const Packet& start : capture.packets) {
            if (start.urb == urb && start.event == Event::submission) {
                Packet copy = start;
                Packet& packet = add(Event::completion, copy.kind, copy.endpoint, answered);
                packet.urb = urb;
                packet.status = status;
                packet.length = static_cast<std::uint32_t>(answered.size());
                return;
            }
        }
    }
    void request(const SetupBytes& setup, const Bytes& answered, std::int32_t status = 0) {
        const std::uint64_t urb = begin(Kind::control, setup[0] & 0x80U);
        capture.packets.back().setup = setup;
        capture.packets.back().length = setup[6];
        end(urb, answered, status);
    }
    void write(const Bytes& sent, std::int32_t status = 0) { end(begin(Kind::bulk, 0x01, sent), {}, status); }
    void read(const Bytes& answered, std::int32_t status = 0) {
        end(begin(Kind::bulk, 0x81), answered, status);
    }
    /// The capture has less than these bytes of the packet before.
    void cutLast(std::uint32_t length) {
        capture.packets.back().cut = true;
        capture.packets.back().length = length;
    }
    void of(std::uint8_t device) { device_ = device; }

    RecordedDevice only() const {
        Recording recording = recordingOf(capture);
        EXPECT_THAT(recording.problems, ::testing::IsEmpty());
        EXPECT_THAT(recording.devices, ::testing::SizeIs(1));
        return std::move(recording.devices.at(0));
    }

    Capture capture;

 private:
    Packet& add(Event event, Kind kind, std::uint8_t endpoint, const Bytes& data) {
        const Bytes& kept = data_.emplace_back(data);
        Packet& packet = capture.packets.emplace_back();
        packet.number = capture.packets.size();
        packet.nanoseconds = packet.number;
        packet.event = event;
        packet.kind = kind;
        packet.endpoint = endpoint;
        packet.bus = 1;
        packet.device = device_;
        packet.data = kept.data();
        packet.size = kept.size();
        return packet;
    }

    std::uint8_t device_ = 5;
    std::uint64_t urb_ = 0;
    std::list<Bytes> data_;
};

}  // namespace simbus::replay
