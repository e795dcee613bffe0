// Transfers that start while other threads open and close devices, release lists and end sessions. The faults
// that this test looks for are detected by the thread and address sanitizers and by the strict checks of the
// drop-in libusb.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>

#include "HidPlatformTest.h"
#include "JniTest.h"

namespace {

using ::testing::AnyOf;
using ::testing::Ge;

constexpr jint kHidDevice = 0;  ///< the device that was plugged in last comes first in a list
constexpr jint kDevices = 3;
constexpr jint kBytes = 64;

/// The starts of one run, by all threads together; ORVEX_STRESS_STARTS sets another number.
int64_t wantedStarts() {
    const char* text = std::getenv("ORVEX_STRESS_STARTS");
    return text == nullptr ? 20'000 : std::atoll(text);
}

/// What a start needs: the JNI environment and the array of its thread, and the device.
struct Start {
    JNIEnv* env;
    jbyteArray bytes;
    jint list;
    jint device;
};

/// Starts the calls of one thread. Each kind has endpoints of its own, so no two transfers meet on one.
using Kind = jint (*)(const Start&);

jint writeBulk(const Start& start) {
    return usbWriteBulkPipe(start.env, nullptr, start.list, start.device, 0x03, kBytes, 1000, start.bytes);
}
jint readBulk(const Start& start) {
    return usbReadBulkPipe(start.env, nullptr, start.list, start.device, 0x83, kBytes, 1000, start.bytes);
}
/// A read that stays in flight until its time-out, a cancel or a close.
jint readNothing(const Start& start) {
    return usbReadBulkPipeEx(start.env, nullptr, start.list, start.device, 0x84, kBytes, 1, start.bytes, 64,
                             0);
}
jint writeInterrupt(const Start& start) {
    return usbWriteInterruptPipeEx(start.env, nullptr, start.list, start.device, 0x02, 2 * kBytes, 1000,
                                   start.bytes, 64, 0);
}
jint readInterrupt(const Start& start) {
    return usbReadInterruptPipe(start.env, nullptr, start.list, start.device, 0x82, kBytes, 1, start.bytes);
}
jint control(const Start& start) {
    return usbReadControlPipe(start.env, nullptr, start.list, start.device, 0, 1000, start.bytes);
}
jint cancelOrReset(const Start& start) {
    usbResetPipe(start.env, nullptr, start.list, start.device, 0x01);
    usbResetDevice(start.env, nullptr, start.list, start.device);
    return usbCancelPipeTransfer(start.env, nullptr, start.list, start.device, 0x84);
}
jint writeHid(const Start& start) {
    return usbWriteInterruptPipe(start.env, nullptr, start.list, kHidDevice, 0x01, kBytes, 1000, start.bytes);
}
jint readHid(const Start& start) {
    return usbReadInterruptPipeEx(start.env, nullptr, start.list, kHidDevice, 0x81, kBytes, 1, start.bytes,
                                  64, 0);
}
constexpr std::array<Kind, 9> kKinds = {writeBulk, readBulk,      readNothing, writeInterrupt, readInterrupt,
                                        control,   cancelOrReset, writeHid,    readHid};

class StartStress : public JniTest {
 protected:
    void SetUp() override {
        JniTest::SetUp();
        for (size_t kind = 0; kind < kKinds.size(); ++kind) {
            arrays_.push_back(std::make_unique<FakeByteArray>(std::vector<jbyte>(kBytes)));
        }
        openSession({deviceJson("one"), deviceJson("two"), hidJson("hid")});
        listAgain();
    }

    /// Makes `left_` starts on as many threads as there are kinds, while `change` runs again and again. Goes
    /// on for at most a minute until a start of each kind went on and one was refused.
    void startBeside(const std::function<void()>& change) {
        std::vector<std::thread> threads;
        for (size_t kind = 0; kind < kKinds.size(); ++kind) {
            threads.emplace_back([this, kind] { keepStarting(kind); });
        }
        while (goesOn()) {
            change();
        }
        for (auto& thread : threads) {
            thread.join();
        }
        closeAll();
    }
    void openAll() {
        for (jint device = 0; device < kDevices; ++device) {
            EXPECT_EQ(0, call(usbOpenDevice, list_.load(), device));
        }
    }
    void closeAll() {
        for (jint device = 0; device < kDevices; ++device) {
            EXPECT_THAT(call(usbCloseDevice, list_.load(), device), AnyOf(0, -109, -114));
        }
    }
    void closeAndOpenSome() {
        for (int times = 0; times < 10; ++times) {
            const auto device = static_cast<jint>(random_() % kDevices);
            EXPECT_EQ(0, call(usbCloseDevice, list_.load(), device));
            EXPECT_EQ(0, call(usbOpenDevice, list_.load(), device));
        }
    }
    void listAgain() {
        list_.store(listOfVendor());
        openAll();
    }
    void endSessionAndStartAnother() {
        EXPECT_EQ(0, call(usbRelease, 0));
        closeAll();
        EXPECT_EQ(0, call(usbReleaseDeviceList, list_.load()));
        EXPECT_EQ(0, call(usbInitialize));
        listAgain();
    }

    std::atomic<jint> list_{-1};
    std::atomic<int64_t> left_{wantedStarts()};
    std::array<std::atomic<int64_t>, kKinds.size()> wentOn_{};  ///< results of 0 or more, by kind
    std::atomic<int64_t> refused_{0};                           ///< results of -109 and -114

 private:
    bool goesOn() const {
        const auto seen = [](const auto& count) { return count.load() > 0; };
        const bool allSeen = seen(refused_) && std::all_of(wentOn_.begin(), wentOn_.end(), seen);
        return left_.load() > 0 || (!allSeen && std::chrono::steady_clock::now() < deadline_);
    }
    void keepStarting(size_t kind) {
        FakeJni jniOfThread;
        while (goesOn()) {
            --left_;
            const auto device = static_cast<jint>(1 + std::abs(left_.load()) % 2);
            const jint result =
                kKinds[kind]({jniOfThread.env(), arrays_[kind]->java(), list_.load(), device});
            wentOn_[kind] += result >= 0 ? 1 : 0;
            refused_ += result == -109 || result == -114 ? 1 : 0;
            // -5: nothing to cancel; -112: a HID device that was closed between the check and the report
            EXPECT_THAT(result, AnyOf(Ge(0), -109, -114, -150, -5, kKinds[kind] == writeHid ? -112 : -109))
                << "kind " << kind;
        }
    }

    std::vector<std::unique_ptr<FakeByteArray>> arrays_;
    std::mt19937 random_{20231};
    const std::chrono::steady_clock::time_point deadline_ =
        std::chrono::steady_clock::now() + std::chrono::minutes(1);
};

}  // namespace

TEST_F(StartStress, TransfersMayStartBesideAnyOpenCloseReleaseOrSessionEnd) {
    int round = 0;
    startBeside([&] {
        closeAndOpenSome();
        switch (round++ % 3) {
            case 0:  // nothing refers to the records any more, so the release deletes them
                closeAll();
                EXPECT_EQ(0, call(usbReleaseDeviceList, list_.load()));
                return listAgain();
            case 1:  // the release keeps the open records for their close
                EXPECT_EQ(0, call(usbReleaseDeviceList, list_.load()));
                closeAll();
                return listAgain();
            default:
                return endSessionAndStartAnother();
        }
    });
    for (size_t kind = 0; kind < kKinds.size(); ++kind) {
        EXPECT_GT(wentOn_[kind].load(), 0) << "kind " << kind;
    }
    EXPECT_GT(refused_.load(), 0);
}
