// Numbers in the bytes of a file, in either byte order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace simbus::capture {

/// Bytes that end. Reading beyond the end gives zeroes, is remembered, and leaves nothing to be read.
class ByteReader {
 public:
    ByteReader(const std::uint8_t* bytes, std::size_t size, bool bigEndian)
        : next_(bytes), left_(size), bigEndian_(bigEndian) {}

    template <class Number>
    Number number() {
        std::make_unsigned_t<Number> value = 0;
        if (!has(sizeof(Number))) {
            return 0;
        }
        for (std::size_t i = 0; i < sizeof(Number); ++i) {
            const std::size_t shift = 8 * (bigEndian_ ? sizeof(Number) - 1 - i : i);
            value = static_cast<decltype(value)>(value | static_cast<std::uint64_t>(next_[i]) << shift);
        }
        skip(sizeof(Number));
        return static_cast<Number>(value);
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
        const auto bits = static_cast<std::make_unsigned_t<Number>>(value);
        for (std::size_t i = 0; i < sizeof(Number); ++i) {
            *next_++ = static_cast<std::uint8_t>(static_cast<std::uint64_t>(bits) >> 8 * i);
        }
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
