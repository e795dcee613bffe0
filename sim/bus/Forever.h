#pragma once

#include <utility>

namespace simbus {

/// Returns a copy of a value that is never destroyed: threads may use it until the process has ended.
template <class Value>
const Value* forever(Value value) {
    return new Value(std::move(value));
}

}  // namespace simbus
