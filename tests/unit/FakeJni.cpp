#include "FakeJni.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>

namespace {

std::atomic<FakeJni*> g_latest{nullptr};
thread_local FakeJni* t_own = nullptr;

/// The environment that the calling thread has constructed; if it has constructed none, the latest of any.
struct CurrentFake {
    FakeJni* operator->() const { return t_own != nullptr ? t_own : g_latest.load(); }
} const g_fakeJni;

void note(const char* call) {
    if (g_fakeJni->notesCalls) {
        g_fakeJni->calls.emplace_back(call);
    }
}

/// Length of each array created so far; JNI asks for it without the type of the elements.
std::map<jarray, jsize>& lengths() {
    static std::map<jarray, jsize> all;
    return all;
}

template <class Element>
Element* pin(std::vector<Element>& content) {
    if (g_fakeJni->outOfMemory) {
        return nullptr;
    }
    ++g_fakeJni->pins;
    if (!g_fakeJni->pinsByCopy) {
        return content.data();
    }
    auto* copy = new Element[content.size() + 1];
    std::copy(content.begin(), content.end(), copy);
    return copy;
}

template <class Element>
void unpin(std::vector<Element>& content, const Element* elements, jint mode) {
    ++g_fakeJni->releases;
    g_fakeJni->modes.push_back(mode);
    if (elements != content.data()) {
        std::copy_n(elements, content.size(), content.begin());
        delete[] elements;
    }
}

void expectNoCopyFlag(const jboolean* isCopy) {
    EXPECT_EQ(nullptr, isCopy) << "the library does not ask whether it works on a copy";
}

jsize arrayLength(JNIEnv*, jarray array) {
    note("GetArrayLength");
    return lengths().at(array);
}

jbyte* byteElements(JNIEnv*, jbyteArray array, jboolean* isCopy) {
    note("GetByteArrayElements");
    expectNoCopyFlag(isCopy);
    return pin(static_cast<FakeByteArray*>(array)->bytes);
}
jint* intElements(JNIEnv*, jintArray array, jboolean* isCopy) {
    note("GetIntArrayElements");
    expectNoCopyFlag(isCopy);
    return pin(static_cast<FakeIntArray*>(array)->values);
}

void releaseBytes(JNIEnv*, jbyteArray array, jbyte* elements, jint mode) {
    note("ReleaseByteArrayElements");
    unpin(static_cast<FakeByteArray*>(array)->bytes, elements, mode);
}

void releaseInts(JNIEnv*, jintArray array, jint* elements, jint mode) {
    note("ReleaseIntArrayElements");
    unpin(static_cast<FakeIntArray*>(array)->values, elements, mode);
}

jstring newString(JNIEnv*, const char* text) {
    note("NewStringUTF");
    g_fakeJni->strings.emplace_back(text);
    return nullptr;
}

}  // namespace

FakeJni::FakeJni() {
    t_own = this;
    g_latest = this;
    functions_.GetArrayLength = arrayLength;
    functions_.GetByteArrayElements = byteElements;
    functions_.ReleaseByteArrayElements = releaseBytes;
    functions_.GetIntArrayElements = intElements;
    functions_.ReleaseIntArrayElements = releaseInts;
    functions_.NewStringUTF = newString;
    env_.functions = &functions_;
}

FakeByteArray::FakeByteArray(std::vector<jbyte> content) : bytes(std::move(content)) {
    bytes.reserve(1);  // pinning an empty array returns a pointer, too
    lengths()[this] = static_cast<jsize>(bytes.size());
}

FakeIntArray::FakeIntArray(std::vector<jint> content) : values(std::move(content)) {
    values.reserve(1);
    lengths()[this] = static_cast<jsize>(values.size());
}
