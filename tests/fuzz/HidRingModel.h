#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

#include "hid/HIDAccess.h"

/// The expected contents of a ring of reports, as long as they can be predicted: a change of the packet size,
/// while the ring holds reports or its next slot is not the first, leads to slots of two sizes.
class HidRingModel {
 public:
    explicit HidRingModel(int packetSize) : packetSize_(packetSize), deviceBytes_(packetSize) {}

    bool isKnown() const { return known_; }
    int packetSize() const { return packetSize_; }
    int reports() const { return static_cast<int>(slots_.size()); }

    /// The device uses the packet size that was set when it was opened.
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
        // A report that does not fit at the ring's end is stored where the next one arrives.
        const int inside = std::min(packetSize_, kRingBytes - writeIndex_);
        std::copy(slots_.back().bytes.begin() + inside, slots_.back().bytes.end(), buffer_.begin());
        if (static_cast<int>(slots_.size()) == (kRingBytes + packetSize_ - 1) / packetSize_) {
            slots_.pop_front();
        }
    }

    /// The oldest report, cut to `size`; empty if there is none.
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

    /// The expected result of a read of `size` bytes.
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
