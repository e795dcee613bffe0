#pragma once

// Some record fields are plain integers or pointers by layout and still shared by two threads. They are read
// and written through these and nothing else: whoever loads a value also sees everything that was written
// before it was stored.

template <class T>
T loadShared(const T& field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

template <class T, class V>
void storeShared(T& field, V value) {
    __atomic_store_n(&field, static_cast<T>(value), __ATOMIC_RELEASE);
}

/// Stores the value if the field holds the one expected. True when it did.
template <class T, class E, class V>
bool compareExchangeShared(T& field, E expected, V value) {
    auto held = static_cast<T>(expected);
    return __atomic_compare_exchange_n(&field, &held, static_cast<T>(value), false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}
