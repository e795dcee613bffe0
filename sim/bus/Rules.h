// Rules: what a scenario says about single control requests and transfers. The first rule of a list that
// matches is applied.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Bus.h"

namespace simbus {

/// What data has to begin with; a digit may be any.
struct Beginning {
    Bytes bytes;
    Bytes mask;  ///< as many bytes; what is 0 in it may be anything

    bool matches(const std::uint8_t* data, std::size_t length) const;
};

struct Rule {
    unsigned number = 0;  ///< differs from those of the device's other rules

    // When it matches. What is absent matches any value.
    std::optional<std::uint8_t> requestType;  ///< these four: control requests only
    std::optional<std::uint8_t> request;
    std::optional<std::uint16_t> value;
    std::optional<std::uint16_t> index;
    std::optional<std::uint32_t> length;  ///< bytes that the host sends or requests
    Beginning data;                       ///< of what the host sends
    std::optional<std::string> state;     ///< of the device

    // What it does.
    std::vector<Bytes> replies;  ///< one each time; after the last, the first again
    std::string store;           ///< name of the slot that stores what the host sends
    std::string fetch;           ///< name of the slot that is the reply
    bool stall = false;
    bool silent = false;
    bool program = false;       ///< the device's program answers
    std::uint32_t delayMs = 0;  ///< until the answer; at an OUT endpoint, until its reply can be read
    std::optional<std::string> setState;
};

enum class RulePlace { control, out, in };

/// Throws Wrong.
Rule readRule(const nlohmann::json& json, RulePlace place, unsigned number);

/// What the rules of a device know and change, from its plug to its unplug.
class RuleMemory {
 public:
    explicit RuleMemory(std::string state) : state_(std::move(state)) {}

    const std::string& state() const { return state_; }
    /// The rule for a transfer with which the host sends or requests `length` bytes; null when there is none.
    const Rule* find(const std::vector<Rule>& rules, const Transfer& transfer, std::size_t length) const;
    /// Stores and changes what the rule says, and returns its reply, if it has one.
    std::optional<Bytes> apply(const Rule& rule, const Transfer& transfer, std::size_t length);

 private:
    bool matches(const Rule& rule, const Transfer& transfer, std::size_t length) const;

    std::string state_;
    std::map<std::string, Bytes> slots_;
    std::map<unsigned, std::size_t> turns_;  ///< how often each rule has replied, by its number
};

}  // namespace simbus
