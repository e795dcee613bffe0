#pragma once

#include <jni.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

/// Pins the bytes of a Java array for the lifetime of this object; the destructor copies them back, for reads
/// and writes alike. A null array has no bytes and is not pinned.
class PinnedBytes {
 public:
    PinnedBytes(JNIEnv* env, jbyteArray array)
        : env_(env),
          array_(array),
          length_(array == nullptr ? 0 : env->GetArrayLength(array)),
          elements_(array == nullptr ? nullptr : env->GetByteArrayElements(array, nullptr)),
          padded_(nullptr, &std::free) {}
    ~PinnedBytes() {
        if (padded_ != nullptr) {
            std::memcpy(elements_, padded_.get(), static_cast<size_t>(length_));
        }
        if (elements_ != nullptr) {
            env_->ReleaseByteArrayElements(array_, elements_, 0);
        }
    }
    PinnedBytes(const PinnedBytes&) = delete;
    PinnedBytes& operator=(const PinnedBytes&) = delete;

    jsize length() const { return length_; }
    /// Null for a null array, or when the virtual machine is out of memory.
    uint8_t* bytes() const { return reinterpret_cast<uint8_t*>(elements_); }

    /// Returns at least `count` bytes, which live as long as this object: those of the array, or, when the
    /// array is shorter, a zero-padded copy, of which the array gets back as much as it holds. Returns null
    /// when the array has no bytes or there is no memory for the copy. To be called once.
    uint8_t* atLeast(int32_t count) {
        if (elements_ == nullptr || count <= length_) {
            return bytes();
        }
        // calloc leaves fresh pages untouched, so an absurdly large `count` costs no memory.
        padded_.reset(static_cast<uint8_t*>(std::calloc(static_cast<size_t>(count), 1)));
        if (padded_ != nullptr) {
            std::memcpy(padded_.get(), elements_, static_cast<size_t>(length_));
        }
        return padded_.get();
    }

 private:
    JNIEnv* env_;
    jbyteArray array_;
    jsize length_;
    jbyte* elements_;
    std::unique_ptr<uint8_t, decltype(&std::free)> padded_;  ///< the copy, when there is one
};
