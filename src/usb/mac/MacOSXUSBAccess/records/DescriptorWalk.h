#pragma once

#include <algorithm>
#include <cstdint>

/// bDescriptorType values that the walks look for.
constexpr uint8_t kInterfaceDescriptor = 4;
constexpr uint8_t kEndpointDescriptor = 5;

/// Goes through a block of USB descriptors one by one. The bytes come from the device and are not trusted: no
/// length in them leads out of the block. A walk stops for one of two reasons, which its callers answer
/// differently: the block is at its end, or a descriptor claims a length of 0 and the next cannot be found.
///
///     for (DescriptorWalk walk(bytes, length); walk.atDescriptor(); walk.advance()) { ... }
class DescriptorWalk {
 public:
    /// `length` valid bytes at `bytes`; below 1 the walk is at its end from the start.
    DescriptorWalk(const uint8_t* bytes, int32_t length, int32_t offset = 0)
        : bytes_(bytes), length_(length), offset_(offset) {}

    /// True while there is a descriptor here with a length to step over.
    bool atDescriptor() const { return !atEnd() && byte(0) != 0; }
    /// True when the walk stopped at a descriptor that claims to be 0 bytes long.
    bool atZeroLength() const { return !atEnd() && byte(0) == 0; }
    bool atEnd() const { return offset_ >= length_; }

    /// To the next descriptor, or to the end when this one claims to reach it or beyond.
    void advance() { offset_ += std::min<int32_t>(byte(0), remaining()); }

    /// Offset of this descriptor in the block, bytes.
    int32_t offset() const { return offset_; }
    /// Bytes from this descriptor's first to the end of the block.
    int32_t remaining() const { return length_ - offset_; }
    const uint8_t* here() const { return bytes_ + offset_; }

    /// bDescriptorType of this descriptor.
    uint8_t type() const { return byte(1); }
    /// Byte `index` of this descriptor; 0 where the block ends before it.
    uint8_t byte(int32_t index) const { return index < remaining() ? bytes_[offset_ + index] : uint8_t{0}; }
    /// Little-endian 16-bit value at byte `index` of this descriptor.
    int32_t word(int32_t index) const { return byte(index) | byte(index + 1) << 8; }

 private:
    const uint8_t* bytes_;
    int32_t length_;
    int32_t offset_;
};
