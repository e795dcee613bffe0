#include "Rules.h"

#include <algorithm>
#include <utility>

#include "HostMessages.h"
#include "Json.h"

namespace simbus {

namespace {

constexpr char kAnyDigit = '?';

/// As bytes are read, with "?" for a digit that may be any.
Beginning beginningOf(const Fields& fields, const char* key) {
    const Json& value = fields[key];
    if (value.is_null()) {
        return {};
    }
    if (!value.is_string()) {
        const Bytes bytes = bytesFrom(value, key);
        return {bytes, Bytes(bytes.size(), 0xFF)};
    }
    auto digits = value.get<std::string>();
    std::string mask = digits;
    std::replace(digits.begin(), digits.end(), kAnyDigit, '0');
    std::transform(mask.begin(), mask.end(), mask.begin(), [](char c) { return c == kAnyDigit ? '0' : 'F'; });
    return {bytesFrom(digits, key), bytesFrom(mask, key)};
}

std::vector<Bytes> repliesOf(const Fields& fields) {
    std::vector<Bytes> replies;
    if (const Json& reply = fields["reply"]; !reply.is_null()) {
        replies.push_back(bytesFrom(reply, "reply"));
    }
    forEachOf(fields, "replies", [&](const Json& reply) { replies.push_back(bytesFrom(reply, "reply")); });
    if (fields["replies"].is_array() && replies.empty()) {
        throw Wrong("replies", "has no entry");
    }
    return replies;
}

void refuseTwoAnswers(const Fields& fields, const Rule& rule) {
    const int answers = static_cast<int>(!fields["reply"].is_null()) +
                        static_cast<int>(!fields["replies"].is_null()) +
                        static_cast<int>(!rule.fetch.empty()) + static_cast<int>(rule.stall) +
                        static_cast<int>(rule.silent) + static_cast<int>(rule.program);
    if (answers > 1) {
        throw Wrong(
            R"(only one of "reply", "replies", "fetch", "stall", "silent" and "program" is possible)");
    }
}

}  // namespace

Rule readRule(const Json& json, RulePlace place, unsigned number) {
    const Fields fields(json);
    Rule rule;
    rule.number = number;
    if (place == RulePlace::control) {
        rule.requestType = optionalNumber<std::uint8_t>(fields, "requestType");
        rule.request = optionalNumber<std::uint8_t>(fields, "request");
        rule.value = optionalNumber<std::uint16_t>(fields, "value");
        rule.index = optionalNumber<std::uint16_t>(fields, "index");
    }
    rule.length = optionalNumber<std::uint32_t>(fields, "length");
    rule.state = optionalText(fields, "state");
    if (place != RulePlace::in) {
        rule.data = beginningOf(fields, "data");
        rule.store = optionalText(fields, "store").value_or("");
    }
    rule.replies = repliesOf(fields);
    rule.fetch = optionalText(fields, "fetch").value_or("");
    rule.stall = flagOf(fields, "stall", false);
    rule.silent = flagOf(fields, "silent", false);
    rule.program = flagOf(fields, "program", false);
    rule.delayMs = numberOf<std::uint32_t>(fields, "delayMs", 0);
    rule.setState = optionalText(fields, "setState");
    fields.refuseOthers();
    refuseTwoAnswers(fields, rule);
    if (place == RulePlace::out && rule.delayMs != 0 && rule.replies.empty() && rule.fetch.empty()) {
        throw Wrong("delayMs", "delays the reply of this rule, which has none");
    }
    return rule;
}

bool Beginning::matches(const std::uint8_t* data, std::size_t length) const {
    if (length < bytes.size()) {
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (((data[i] ^ bytes[i]) & mask[i]) != 0) {
            return false;
        }
    }
    return true;
}

bool RuleMemory::matches(const Rule& rule, const Transfer& transfer, std::size_t length) const {
    const Setup& setup = transfer.setup;
    const bool isRequest = (!rule.requestType || *rule.requestType == setup.requestType) &&
                           (!rule.request || *rule.request == setup.request) &&
                           (!rule.value || *rule.value == setup.value) &&
                           (!rule.index || *rule.index == setup.index);
    return isRequest && (!rule.length || *rule.length == length) && (!rule.state || *rule.state == state_) &&
           rule.data.matches(transfer.data, isIn(transfer) ? 0 : length);
}

const Rule* RuleMemory::find(const std::vector<Rule>& rules, const Transfer& transfer,
                             std::size_t length) const {
    const auto found = std::find_if(rules.begin(), rules.end(),
                                    [&](const Rule& rule) { return matches(rule, transfer, length); });
    return found == rules.end() ? nullptr : &*found;
}

std::optional<Bytes> RuleMemory::apply(const Rule& rule, const Transfer& transfer, std::size_t length) {
    if (!rule.store.empty() && !isIn(transfer)) {
        slots_[rule.store].assign(transfer.data, transfer.data + length);
    }
    state_ = rule.setState.value_or(state_);
    if (!rule.fetch.empty()) {
        return slots_[rule.fetch];
    }
    if (rule.replies.empty()) {
        return std::nullopt;
    }
    return rule.replies[turns_[rule.number]++ % rule.replies.size()];
}

}  // namespace simbus
