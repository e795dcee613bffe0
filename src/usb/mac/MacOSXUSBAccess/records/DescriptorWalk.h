#pragma once

#include <algorithm>
#include <cstdint>

/// Values of bDescriptorType.
constexpr uint8_t kInterfaceDescriptor = 4;
constexpr uint8_t kEndpointDescriptor = 5;

/// Iterates over a block of USB descriptors. The bytes come from the device and are not trusted: no length in
/// them leads out of the block. A walk stops at the end of the block, or at a descriptor that claims a length
/// of 0, behind which the next cannot be found; callers treat the two differently.
///
///     for (DescriptorWalk walk(bytes, length); walk.atDescriptor(); walk.advance()) { ... }
class DescriptorWalk {
 public:
    /// Walks the `length` bytes at `bytes` from `offset` on; with a `length` below 1 the walk is at its end.
    DescriptorWalk(const uint8_t* bytes, int32_t length, int32_t offset = 0)
        : bytes_(bytes), length_(length), offset_(offset) {}

    /// True at a descriptor of non-zero length.
    bool atDescriptor() const { return !atEnd() && byte(0) != 0; }
    /// True at a descriptor that claims a length of 0.
    bool atZeroLength() const { return !atEnd() && byte(0) == 0; }
    bool atEnd() const { return offset_ >= length_; }

    /// Moves to the next descriptor, or to the end of the block when this one claims to reach it or beyond.
    void advance() { offset_ += std::min<int32_t>(byte(0), remaining()); }

    /// Offset of this descriptor in the block, bytes.
    int32_t offset() const { return offset_; }
    /// Bytes from the start of this descriptor to the end of the block.
    int32_t remaining() const { return length_ - offset_; }
    const uint8_t* here() const { return bytes_ + offset_; }

    /// bDescriptorType of this descriptor.
    uint8_t type() const { return byte(1); }
    /// Byte `index` of this descriptor; 0 beyond the end of the block.
    uint8_t byte(int32_t index) const { return index < remaining() ? bytes_[offset_ + index] : uint8_t{0}; }
    /// Little-endian 16-bit value at byte `index` of this descriptor.
    int32_t word(int32_t index) const { return byte(index) | byte(index + 1) << 8; }

 private:
    const uint8_t* bytes_;
    int32_t length_;
    int32_t offset_;
};
