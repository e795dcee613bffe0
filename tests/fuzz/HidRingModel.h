#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

#include "hid/HIDAccess.h"

/// What a ring of reports holds, as long as that can be told: a change of the packet size, when reports are
/// in it or its next slot is not the first, puts slots of two sizes into it.
class HidRingModel {
 public:
    explicit HidRingModel(int packetSize) : packetSize_(packetSize), deviceBytes_(packetSize) {}

    bool isKnown() const { return known_; }
    int packetSize() const { return packetSize_; }
    int reports() const { return static_cast<int>(slots_.size()); }

    /// The device is told the packet size of its opening.
    void opened() { deviceBytes_ = packetSize_; }
    void setPacketSize(int size) {
        known_ = known_ && (size == packetSize_ || (writeIndex_ == 0 && slots_.empty()));
        packetSize_ = size;
    }

    void deliver(const std::vector<uint8_t>& report) {
        std::copy_n(report.begin(), std::min(report.size(), static_cast<std::size_t>(deviceBytes_)),
                    buffer_.begin());
        writeIndex_ = writeIndex_ + packetSize_ >= kRingBytes ? 0 : writeIndex_ + packetSize_;
        slots_.push_back({writeIndex_, {buffer_.begin(), buffer_.begin() + packetSize_}});
        // What does not fit at the ring's end lies where the next report arrives.
        const int inside = std::min(packetSize_, kRingBytes - writeIndex_);
        std::copy(slots_.back().bytes.begin() + inside, slots_.back().bytes.end(), buffer_.begin());
        if (static_cast<int>(slots_.size()) == (kRingBytes + packetSize_ - 1) / packetSize_) {
            slots_.pop_front();
        }
    }

    /// The oldest report as it is now, cut to `size`; nothing when there is none.
    std::vector<uint8_t> take(int size) {
        if (slots_.empty()) {
            return {};
        }
        Slot oldest = slots_.front();
        slots_.pop_front();
        const int inside = std::min(packetSize_, kRingBytes - oldest.index);
        std::copy_n(buffer_.begin(), packetSize_ - inside, oldest.bytes.begin() + inside);
        oldest.bytes.resize(static_cast<std::size_t>(std::min(size, packetSize_)));
        return oldest.bytes;
    }

    void clear() { slots_.clear(); }

    /// What a read of `size` bytes finds.
    std::vector<uint8_t> read(int size) {
        std::vector<uint8_t> all;
        while (!slots_.empty() && static_cast<int>(all.size()) < size) {
            const std::vector<uint8_t> next = take(size - static_cast<int>(all.size()));
            all.insert(all.end(), next.begin(), next.end());
        }
        return all;
    }

 private:
    struct Slot {
        int index;
        std::vector<uint8_t> bytes;
    };

    bool known_ = true;
    int packetSize_;
    int deviceBytes_;
    int writeIndex_ = 0;
    std::deque<Slot> slots_;
    std::vector<uint8_t> buffer_ = std::vector<uint8_t>(kLargestPacket);
};
