#include "Json.h"

#include <cctype>
#include <stdexcept>

#include "Forever.h"

namespace simbus {

namespace {

std::runtime_error wrong(const char* key, const std::string& what) {
    return std::runtime_error("\"" + std::string(key) + "\" " + what);
}

unsigned nibble(char digit, const char* key) {
    const auto character = static_cast<unsigned char>(digit);
    if (std::isxdigit(character) == 0) {
        throw wrong(key, "is not hexadecimal");
    }
    return static_cast<unsigned>(std::isdigit(character) != 0 ? digit - '0'
                                                              : std::tolower(character) - 'a' + 10);
}

std::int64_t parse(const std::string& text, const char* key) {
    std::size_t used = 0;
    std::int64_t number = 0;
    try {
        number = std::stoll(text, &used, 0);
    } catch (const std::logic_error&) {
        used = 0;
    }
    if (used == 0 || used != text.size()) {
        throw wrong(key, "is not a number");
    }
    return number;
}

}  // namespace

const Json& valueOf(const Json& object, const char* key) {
    static const Json* const null = forever(Json());
    if (!object.is_object()) {
        throw wrong(key, "is asked of something that is not an object");
    }
    const auto found = object.find(key);
    return found == object.end() ? *null : *found;
}

std::string textOf(const Json& object, const char* key) {
    auto text = optionalText(object, key);
    if (!text || text->empty()) {
        throw wrong(key, "is missing");
    }
    return *text;
}

std::optional<std::string> optionalText(const Json& object, const char* key) {
    const Json& value = valueOf(object, key);
    if (value.is_null()) {
        return std::nullopt;
    }
    if (!value.is_string()) {
        throw wrong(key, "is not a string");
    }
    return value.get<std::string>();
}

bool flagOf(const Json& object, const char* key, bool fallback) {
    const Json& value = valueOf(object, key);
    if (value.is_null()) {
        return fallback;
    }
    if (!value.is_boolean()) {
        throw wrong(key, "is neither true nor false");
    }
    return value.get<bool>();
}

std::int64_t integer(const Json& value, const char* key, std::int64_t min, std::int64_t max) {
    std::int64_t number = 0;
    if (value.is_string()) {
        number = parse(value.get<std::string>(), key);
    } else if (value.is_number_integer()) {
        number = value.get<std::int64_t>();
    } else {
        throw wrong(key, "is not a number");
    }
    if (number < min || number > max) {
        throw wrong(key, "is out of range");
    }
    return number;
}

std::string lineOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string answered(const std::function<Json()>& act) {
    Json answer;
    try {
        answer = act();
        answer["ok"] = true;
    } catch (const std::exception& error) {
        answer = {{"ok", false}, {"error", error.what()}};
    }
    return lineOf(answer);
}

Bytes bytesOf(const Json& object, const char* key) {
    const std::string text = optionalText(object, key).value_or("");
    if (text.size() % 2 != 0) {
        throw wrong(key, "has an odd number of hexadecimal digits");
    }
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(nibble(text[at], key) << 4U | nibble(text[at + 1], key)));
    }
    return bytes;
}

std::string hexOf(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

}  // namespace simbus
