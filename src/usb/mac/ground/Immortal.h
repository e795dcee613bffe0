#pragma once

/// A global object that is made when the library is loaded and never destroyed. A program may end while a
/// thread of it is still inside the library: what that thread uses has to outlive the program's own globals.
template <class T>
union Immortal {
    Immortal() : object() {}
    ~Immortal() {}  // NOLINT(modernize-use-equals-default): a default one would be deleted
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T object;
};
