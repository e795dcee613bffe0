#pragma once

#include <map>
#include <string>

#include "Objects.h"

namespace sim {

/// A dictionary with string keys; owns its values.
struct Dictionary final : Object {
    explicit Dictionary(std::string className)
        : Object(Kind::dictionary), serviceClass(std::move(className)) {}
    ~Dictionary() override {
        for (const auto& [key, value] : values) {
            CFRelease(value);
        }
    }
    /// Takes ownership of the caller's reference on the value.
    void set(const std::string& key, CFTypeRef value) {
        const auto found = values.find(key);
        if (found != values.end()) {
            CFRelease(found->second);
        }
        values[key] = value;
    }

    const std::string serviceClass;
    std::map<std::string, CFTypeRef> values;
};

}  // namespace sim
