#pragma once

// Access to record fields that are plain integers or pointers and shared between threads. These functions are
// the only access to them. Loads acquire and stores release: a load that sees a value also sees every write
// that preceded its store.

template <class T>
T loadShared(const T& field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

template <class T, class V>
void storeShared(T& field, V value) {
    __atomic_store_n(&field, static_cast<T>(value), __ATOMIC_RELEASE);
}

/// Stores `value` if the field holds `expected`. Returns true when it has stored it.
template <class T, class E, class V>
bool compareExchangeShared(T& field, E expected, V value) {
    auto held = static_cast<T>(expected);
    return __atomic_compare_exchange_n(&field, &held, static_cast<T>(value), false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}
