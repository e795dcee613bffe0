#pragma once

#include <jni.h>

#include <string>
#include <vector>

/// A Java array in plain memory, as the fake virtual machine below returns it.
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

/// A JNI environment that implements the six calls that the library makes and counts each.
/// Deliberate: any other call crashes.
class FakeJni {
 public:
    FakeJni();
    JNIEnv* env() { return &env_; }

    int pins = 0;                      ///< Get...ArrayElements calls that returned elements
    int releases = 0;                  ///< Release...ArrayElements calls
    std::vector<jint> modes;           ///< mode of each release
    std::vector<std::string> strings;  ///< text of each NewStringUTF
    std::vector<std::string> calls;    ///< names of the calls since notesCalls was set, in order
    bool notesCalls = false;   ///< off by default, so that only the library allocates memory in a test of it
    bool outOfMemory = false;  ///< Get...ArrayElements return null
    bool pinsByCopy = false;   ///< Get...ArrayElements return a copy, which the release copies back

 private:
    JNINativeInterface_ functions_{};
    JNIEnv env_{};
};
