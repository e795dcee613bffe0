#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// Reads the fuzzer's bytes one after the other; after their end it returns zeroes.
class FuzzInput {
 public:
    FuzzInput(const uint8_t* bytes, std::size_t count) : next_(bytes), left_(count) {}

    bool atEnd() const { return left_ == 0; }
    uint8_t byte() {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *next_++;
    }
    uint16_t word() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }
    /// Returns fewer at the end of the input.
    std::vector<uint8_t> bytes(std::size_t count) {
        const std::size_t taken = std::min(count, left_);
        const std::vector<uint8_t> all(next_, next_ + taken);
        next_ += taken;
        left_ -= taken;
        return all;
    }
    /// Reads a number, then that many bytes.
    std::vector<uint8_t> counted() { return bytes(byte()); }
    std::vector<uint8_t> rest() { return bytes(left_); }
    template <class Value, std::size_t count>
    Value oneOf(const std::array<Value, count>& values) {
        return values[byte() % count];
    }

 private:
    const uint8_t* next_;
    std::size_t left_;
};

/// Checks a condition. A violation ends the program, which the fuzzer reports as a finding.
inline void require(bool holds, const char* demand) {
    if (!holds) {
        std::fprintf(stderr, "check failed: %s\n", demand);
        std::abort();
    }
}
