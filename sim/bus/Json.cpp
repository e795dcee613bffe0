#include "Json.h"

#include <cctype>
#include <stdexcept>

#include "Forever.h"

namespace simbus {

namespace {

unsigned nibble(char digit, const char* key) {
    const auto character = static_cast<unsigned char>(digit);
    if (std::isxdigit(character) == 0) {
        throw Wrong(key, "is not hexadecimal");
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
        throw Wrong(key, "is not a number");
    }
    return number;
}

}  // namespace

void Wrong::within(const Json& step) {
    way_.insert(way_.begin(), step);
    const bool isName = step.is_string();
    const std::string shown = isName ? step.get<std::string>() : "[" + step.dump() + "]";
    where_ = shown + (where_.empty() || where_[0] == '[' ? "" : ".") + where_;
    text_ = where_ + ": " + problem_;
}

const Json& Fields::operator[](const char* key) const {
    asked_.insert(key);
    return valueOf(object_, key);
}

void Fields::refuseOthers() const {
    for (const auto& [key, value] : object_.items()) {
        if (asked_.count(key) == 0) {
            throw Wrong(key, "is unknown here");
        }
    }
}

const Json& valueOf(const Json& object, const char* key) {
    static const Json* const null = forever(Json());
    if (!object.is_object()) {
        throw Wrong("this is not an object");
    }
    const auto found = object.find(key);
    return found == object.end() ? *null : *found;
}

void forEachOf(const Fields& object, const char* key, const std::function<void(const Json&)>& visit) {
    const Json& list = object[key];
    if (!list.is_array() && !list.is_null()) {
        throw Wrong(key, "is not a list");
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        inside(key, [&] { inside(i, [&] { visit(list[i]); }); });
    }
}

void forEachIn(const Fields& object, const char* key,
               const std::function<void(const std::string& name, const Json& value)>& visit) {
    const Json& values = object[key];
    if (!values.is_object() && !values.is_null()) {
        throw Wrong(key, "is not an object");
    }
    for (const auto& each : values.items()) {
        inside(key, [&] { visit(each.key(), each.value()); });
    }
}

std::string textOf(const Fields& object, const char* key) {
    auto text = optionalText(object, key);
    if (!text || text->empty()) {
        throw Wrong(key, "is missing");
    }
    return *text;
}

std::optional<std::string> optionalText(const Fields& object, const char* key) {
    const Json& value = object[key];
    if (value.is_null()) {
        return std::nullopt;
    }
    if (!value.is_string()) {
        throw Wrong(key, "is not a string");
    }
    return value.get<std::string>();
}

bool flagOf(const Fields& object, const char* key, bool fallback) {
    const Json& value = object[key];
    if (value.is_null()) {
        return fallback;
    }
    if (!value.is_boolean()) {
        throw Wrong(key, "is neither true nor false");
    }
    return value.get<bool>();
}

std::int64_t integer(const Json& value, const char* key, std::int64_t min, std::int64_t max) {
    std::int64_t number = 0;
    if (value.is_string()) {
        number = parse(value.get<std::string>(), key);
    } else if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX) {
        throw Wrong(key, "is out of range");
    } else if (value.is_number_integer()) {
        number = value.get<std::int64_t>();
    } else {
        throw Wrong(key, "is not a number");
    }
    if (number < min || number > max) {
        throw Wrong(key, "is out of range");
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

Bytes bytesFrom(const Json& value, const char* key) {
    if (value.is_object()) {
        Bytes bytes;
        inside(key, [&] {
            const Fields fields(value);
            const auto text = optionalText(fields, "text");
            fields.refuseOthers();
            if (!text) {
                throw Wrong("text", "is missing");
            }
            bytes.assign(text->begin(), text->end());
        });
        return bytes;
    }
    if (!value.is_string()) {
        throw Wrong(key, "is neither a string of hexadecimal digits nor a text");
    }
    const auto text = value.get<std::string>();
    if (text.size() % 2 != 0) {
        throw Wrong(key, "has an odd number of hexadecimal digits");
    }
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(nibble(text[at], key) << 4U | nibble(text[at + 1], key)));
    }
    return bytes;
}

Bytes bytesOf(const Fields& object, const char* key) {
    const Json& value = object[key];
    return value.is_null() ? Bytes() : bytesFrom(value, key);
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
