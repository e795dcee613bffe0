#pragma once

/// A global object that is constructed at load time and never destroyed: a thread may still be inside the
/// library, and use the object, while the program's static destructors run.
template <class T>
union Immortal {
    Immortal() : object() {}
    ~Immortal() {}  // NOLINT(modernize-use-equals-default): a default one would be deleted
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T object;
};
