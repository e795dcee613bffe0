// Stand-in Core Foundation: strings, numbers, dictionaries and UUIDs.
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>

#include "Dictionary.h"
#include "Objects.h"
#include "Text.h"

namespace sim {

namespace {

struct String final : Object {
    String(std::string content, bool isConstant)
        : Object(Kind::string, isConstant), utf8(std::move(content)) {}
    const std::string utf8;
};

struct Number final : Object {
    explicit Number(std::int64_t content) : Object(Kind::number), value(content) {}
    const std::int64_t value;
};

struct Uuid final : Object {
    explicit Uuid(CFUUIDBytes content) : Object(Kind::uuid, true), bytes(content) {}
    const CFUUIDBytes bytes;
};

}  // namespace

bool isKind(CFTypeRef reference, Kind kind) {
    return reference != nullptr && objectOf(reference)->kind == kind;
}

std::optional<std::string> textOf(CFTypeRef reference) {
    return isKind(reference, Kind::string)
               ? std::make_optional(static_cast<String*>(objectOf(reference))->utf8)
               : std::nullopt;
}

std::optional<std::int64_t> numberOf(CFTypeRef reference) {
    return isKind(reference, Kind::number)
               ? std::make_optional(static_cast<Number*>(objectOf(reference))->value)
               : std::nullopt;
}

CFStringRef createString(const std::string& utf8) {
    return referenceTo<CFStringRef>(new String(utf8, false));
}

CFNumberRef createNumber(std::int64_t value) {
    return referenceTo<CFNumberRef>(new Number(value));
}

}  // namespace sim

using sim::Kind;

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeID CFGetTypeID(CFTypeRef object) {
    return static_cast<CFTypeID>(sim::objectOf(object)->kind);
}

CFTypeRef CFRetain(CFTypeRef object) {
    ++sim::objectOf(object)->references;
    return object;
}

void CFRelease(CFTypeRef reference) {
    sim::Object* object = sim::objectOf(reference);
    if (--object->references == 0 && !object->constant) {
        delete object;
    }
}

CFStringRef __CFStringMakeConstantString(const char* text) {
    static std::mutex mutex;
    static std::map<std::string, std::unique_ptr<sim::String>> constants;
    const std::lock_guard lock(mutex);
    auto& constant = constants[text];
    if (constant == nullptr) {
        constant = std::make_unique<sim::String>(text, true);
    }
    return sim::referenceTo<CFStringRef>(constant.get());
}

CFTypeID CFStringGetTypeID() {
    return static_cast<CFTypeID>(Kind::string);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
    SIM_CALL_POINT(__func__);
    if (fault) {
        return nullptr;
    }
    const std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
    return sim::createString(encoding == kCFStringEncodingMacRoman ? sim::utf8OfMacRoman(text) : text);
}

/// A text that does not fit yields an empty one.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding) {
    const std::string text = sim::textOf(string).value_or("");
    const bool fits = text.size() < static_cast<std::size_t>(bufferSize);
    std::memcpy(buffer, text.c_str(), fits ? text.size() + 1 : 0);
    if (!fits && bufferSize > 0) {
        buffer[0] = '\0';
    }
    return fits;
}

CFTypeID CFNumberGetTypeID() {
    return static_cast<CFTypeID>(Kind::number);
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
    SIM_CALL_POINT(__func__);
    if (fault) {
        return nullptr;
    }
    SInt16 shortValue = 0;
    SInt32 intValue = 0;
    if (type == kCFNumberShortType || type == kCFNumberSInt16Type) {
        std::memcpy(&shortValue, value, sizeof shortValue);
        return sim::createNumber(shortValue);
    }
    std::memcpy(&intValue, value, sizeof intValue);
    return sim::createNumber(intValue);
}

/// Returns false when the number does not fit; the value is then truncated. Numbers from 0x8000 to 0xFFFF fit
/// 16 bits as negative numbers: callers that read them as unsigned rely on this.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
    const std::int64_t content = sim::numberOf(number).value_or(0);
    if (type == kCFNumberShortType || type == kCFNumberSInt16Type) {
        const auto cut = static_cast<SInt16>(content);
        std::memcpy(value, &cut, sizeof cut);
        return cut == content || static_cast<UInt16>(cut) == content;
    }
    const auto cut = static_cast<SInt32>(content);
    std::memcpy(value, &cut, sizeof cut);
    return cut == content;
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    static_cast<sim::Dictionary*>(sim::objectOf(dictionary))
        ->set(sim::textOf(key).value_or(""), CFRetain(value));
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
                                         UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8,
                                         UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                         UInt8 byte14, UInt8 byte15) {
    static std::mutex mutex;
    static std::map<std::array<UInt8, 16>, std::unique_ptr<sim::Uuid>> constants;
    const std::lock_guard lock(mutex);
    auto& constant = constants[{byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9, byte10,
                                byte11, byte12, byte13, byte14, byte15}];
    if (constant == nullptr) {
        constant = std::make_unique<sim::Uuid>(CFUUIDBytes{byte0, byte1, byte2, byte3, byte4, byte5, byte6,
                                                           byte7, byte8, byte9, byte10, byte11, byte12,
                                                           byte13, byte14, byte15});
    }
    return sim::referenceTo<CFUUIDRef>(constant.get());
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
    return static_cast<sim::Uuid*>(sim::objectOf(uuid))->bytes;
}

}  // extern "C"
