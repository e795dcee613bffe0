// Numbers in the bytes of a file, in either byte order.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace simbus::capture {

constexpr bool kBigEndianHost = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

template <class Number>
Number inReverse(Number value) {
    std::array<std::uint8_t, sizeof value> bytes;
    std::memcpy(bytes.data(), &value, sizeof value);
    std::reverse(bytes.begin(), bytes.end());
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

/// Bytes that end. Reading beyond the end gives zeroes, is remembered, and leaves nothing to be read.
class ByteReader {
 public:
    ByteReader(const std::uint8_t* bytes, std::size_t size, bool bigEndian)
        : next_(bytes), left_(size), bigEndian_(bigEndian) {}

    template <class Number>
    Number number() {
        Number value = 0;
        if (const std::uint8_t* from = bytes(sizeof value); from != nullptr) {
            std::memcpy(&value, from, sizeof value);
        }
        return bigEndian_ == kBigEndianHost ? value : inReverse(value);
    }
    /// The next bytes; null when there are fewer.
    const std::uint8_t* bytes(std::size_t count) {
        const std::uint8_t* found = has(count) ? next_ : nullptr;
        skip(count);
        return found;
    }
    void skip(std::size_t count) {
        if (has(count)) {
            next_ += count;
            left_ -= count;
        }
    }
    /// The next bytes as a reader of their own.
    ByteReader part(std::size_t count) {
        const std::uint8_t* found = bytes(count);
        return {found, found == nullptr ? 0 : count, bigEndian_};
    }
    std::size_t left() const { return left_; }
    bool overrun() const { return overrun_; }
    bool bigEndian() const { return bigEndian_; }

 private:
    bool has(std::size_t count) {
        if (count > left_) {
            overrun_ = true;
            left_ = 0;
        }
        return !overrun_;
    }

    const std::uint8_t* next_;
    std::size_t left_;
    bool bigEndian_;
    bool overrun_ = false;
};

/// Writes numbers in little-endian order at a place that has room for them.
class ByteWriter {
 public:
    explicit ByteWriter(std::uint8_t* at) : next_(at) {}

    template <class Number>
    ByteWriter& number(Number value) {
        const Number little = kBigEndianHost ? inReverse(value) : value;
        std::memcpy(next_, &little, sizeof little);
        next_ += sizeof little;
        return *this;
    }
    ByteWriter& bytes(const std::uint8_t* from, std::size_t count) {
        next_ = std::copy_n(from, count, next_);
        return *this;
    }
    ByteWriter& zeroes(std::size_t count) {
        next_ = std::fill_n(next_, count, std::uint8_t{0});
        return *this;
    }

 private:
    std::uint8_t* next_;
};

}  // namespace simbus::capture
