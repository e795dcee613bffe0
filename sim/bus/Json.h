// Reads values from the JSON of scenarios and control requests. Every function throws Wrong when a value is
// invalid.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bus.h"

namespace simbus {

using Json = nlohmann::json;

/// What is wrong with a value, and the way to it from the outside: names of keys, and numbers of list
/// entries. The text has all of that: `interfaces[0].endpoints[1]: "address" is not a number`.
class Wrong : public std::runtime_error {
 public:
    explicit Wrong(const std::string& problem) : std::runtime_error(problem), problem_(problem) {}
    Wrong(const std::string& key, const std::string& what) : Wrong("\"" + key + "\" " + what) {
        way_.emplace_back(key);
    }

    void within(const Json& step);  ///< to be called from the inside out
    const std::vector<Json>& way() const { return way_; }
    const char* what() const noexcept override { return text_.empty() ? problem_.c_str() : text_.c_str(); }

 private:
    std::string problem_;
    std::string where_;
    std::string text_;
    std::vector<Json> way_;
};

/// Acts on the part of a value to which the step leads.
template <class Action>
void inside(const Json& step, Action act) {
    try {
        act();
    } catch (Wrong& wrong) {
        wrong.within(step);
        throw;
    }
}

/// An object whose values are read, which notices the keys that are asked for.
class Fields {
 public:
    Fields(const Json& object) : object_(object) {}
    Fields(std::initializer_list<Json> object) = delete;  ///< C++ would take its only entry for the object
    const Json& operator[](const char* key) const;
    /// Throws when the object has a key that was not asked for.
    void refuseOthers() const;

 private:
    const Json& object_;
    mutable std::set<std::string> asked_;
};

/// The value of a key, or null when it is absent.
const Json& valueOf(const Json& object, const char* key);

std::string textOf(const Fields& object, const char* key);  ///< must be present and not empty
std::optional<std::string> optionalText(const Fields& object, const char* key);
bool flagOf(const Fields& object, const char* key, bool fallback);
/// Visits the entries of a list, if there is one.
void forEachOf(const Fields& object, const char* key, const std::function<void(const Json&)>& visit);
/// Visits the values of an object, if there is one.
void forEachIn(const Fields& object, const char* key,
               const std::function<void(const std::string& name, const Json& value)>& visit);

/// A JSON number, or a string such as "0x6A5C" or "27".
std::int64_t integer(const Json& value, const char* key, std::int64_t min, std::int64_t max);

template <class T>
std::optional<T> optionalNumber(const Fields& object, const char* key) {
    const Json& value = object[key];
    if (value.is_null()) {
        return std::nullopt;
    }
    return static_cast<T>(integer(value, key, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

template <class T>
T numberOf(const Fields& object, const char* key, T fallback) {
    return optionalNumber<T>(object, key).value_or(fallback);
}

/// As one line, without its end. Bytes that are not UTF-8 are replaced.
std::string lineOf(const Json& json);
/// The answer to a request of the control protocol: what `act` returns, or the text that it throws.
std::string answered(const std::function<Json()>& act);

/// From a string of hexadecimal digits, or from {"text": "..."}.
Bytes bytesFrom(const Json& value, const char* key);
Bytes bytesOf(const Fields& object, const char* key);  ///< empty when absent
std::string hexOf(const Bytes& bytes);                 ///< upper case, without spaces

}  // namespace simbus
