#pragma once

#include <jni.h>

#include <string>
#include <vector>

/// Java arrays in plain memory, as the fake virtual machine below hands them out.
struct FakeByteArray : _jbyteArray {
    explicit FakeByteArray(std::vector<jbyte> content);
    jbyteArray java() { return this; }
    std::vector<jbyte> bytes;
};

struct FakeIntArray : _jintArray {
    explicit FakeIntArray(std::vector<jint> content);
    jintArray java() { return this; }
    std::vector<jint> values;
};

/// A JNI environment with the six calls that the library makes and a count of each. Any other call crashes,
/// on purpose.
class FakeJni {
 public:
    FakeJni();
    JNIEnv* env() { return &env_; }

    int pins = 0;                      ///< Get...ArrayElements that gave elements
    int releases = 0;                  ///< Release...ArrayElements
    std::vector<jint> modes;           ///< mode of each release
    std::vector<std::string> strings;  ///< text of each NewStringUTF
    std::vector<std::string> calls;    ///< names of the calls since notesCalls was set, in order
    bool notesCalls = false;           ///< off, so that a test of memory meets the library's use of it alone
    bool outOfMemory = false;          ///< Get...ArrayElements give null
    bool pinsByCopy = false;           ///< Get...ArrayElements give a copy, which the release copies back

 private:
    JNINativeInterface_ functions_{};
    JNIEnv env_{};
};
