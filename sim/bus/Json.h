// Reads values from the JSON of scenarios and control requests. Every function throws std::runtime_error with
// a text that names the key when a value is invalid.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Bus.h"

namespace simbus {

using Json = nlohmann::json;

/// The value of a key, or null when it is absent.
const Json& valueOf(const Json& object, const char* key);

std::string textOf(const Json& object, const char* key);  ///< must be present and not empty
std::optional<std::string> optionalText(const Json& object, const char* key);
bool flagOf(const Json& object, const char* key, bool fallback);

/// A JSON number, or a string such as "0x6A5C" or "27".
std::int64_t integer(const Json& value, const char* key, std::int64_t min, std::int64_t max);

template <class T>
std::optional<T> optionalNumber(const Json& object, const char* key) {
    const Json& value = valueOf(object, key);
    if (value.is_null()) {
        return std::nullopt;
    }
    return static_cast<T>(integer(value, key, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

template <class T>
T numberOf(const Json& object, const char* key, T fallback) {
    return optionalNumber<T>(object, key).value_or(fallback);
}

/// As one line, without its end. Bytes that are not UTF-8 are replaced.
std::string lineOf(const Json& json);
/// The answer to a request of the control protocol: what `act` returns, or the text that it throws.
std::string answered(const std::function<Json()>& act);

Bytes bytesOf(const Json& object, const char* key);  ///< from a hex string; empty when absent
std::string hexOf(const Bytes& bytes);               ///< upper case, without spaces

}  // namespace simbus
