// The hot paths through the native methods, each a number of times, with what callgrind counts cut at their
// ends. Run by instructions.py, over the simulated bus. The event thread stays away while transfers follow
// each other, so that who completes one is no matter of chance.
#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FakeJni.h"

#define ORVEX(method) Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_##method

namespace {

constexpr int kCalls = 1000;
constexpr jint kVendor = 0x6A5C;
constexpr jint kBytes = 64;
constexpr jint kTimeoutMs = 10'000;
constexpr jint kNoEndpoint = 0x10;  ///< a cancel there answers as soon as the device is found
constexpr jint kNotOpen = -109;

void demand(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "hot_paths: %s\n", what);
        std::exit(1);
    }
}

/// Calls twice as often as is counted: what only the first calls do is over by then.
template <class Call>
void count(const char* name, Call call) {
    for (int i = 0; i < kCalls; ++i) {
        demand(call(), name);
    }
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < kCalls; ++i) {
        demand(call(), name);
    }
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
}

jint indexOf(FakeJni& jni, jint list, const std::string& serialNumber) {
    jint index = 0;
    do {
        ORVEX(usbGetDeviceInfo)(jni.env(), nullptr, list, index);
        demand(!jni.strings.back().empty(), "there is no such device");
    } while (jni.strings.back().find(serialNumber) == std::string::npos && ++index > 0);
    return index;
}

}  // namespace

int main() {
    FakeJni jni;
    JNIEnv* env = jni.env();
    const jint session = ORVEX(usbInitialize)(env, nullptr);
    const jint list = ORVEX(usbCreateDeviceList)(env, nullptr, session, kVendor);
    const jint index = indexOf(jni, list, "LIBRARY1");
    demand(ORVEX(usbOpenDevice)(env, nullptr, list, index) == 0, "the device cannot be opened");

    FakeByteArray bytes(std::vector<jbyte>(kBytes, 1));
    count("write", [&] {
        return ORVEX(usbWriteBulkPipe)(env, nullptr, list, index, 0x01, kBytes, kTimeoutMs, bytes.java()) ==
               kBytes;
    });
    count("read", [&] {
        return ORVEX(usbReadBulkPipe)(env, nullptr, list, index, 0x81, kBytes, kTimeoutMs, bytes.java()) ==
               kBytes;
    });
    count("look_up",
          [&] { return ORVEX(usbCancelPipeTransfer)(env, nullptr, list, index, kNoEndpoint) == kNotOpen; });
    count("information_line", [&] {
        ORVEX(usbGetDeviceInfo)(env, nullptr, list, index);
        return !jni.strings.back().empty();
    });

    ORVEX(usbReleaseDeviceList)(env, nullptr, list);
    ORVEX(usbRelease)(env, nullptr, session);
    return 0;
}
