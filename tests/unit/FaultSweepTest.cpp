// The main job when a call that the library makes fails: each call in turn, with each code that it can
// return.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "BackgroundCall.h"
#include "DependencyFaults.h"
#include "DescriptorBytes.h"
#include "HidPlatformTest.h"
#include "JniTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

namespace {

using std::chrono::milliseconds;

struct FaultPoint {
    std::string call;
    unsigned nth;
    int code;
};

/// The number of codes with which a call fails. With the thread sanitizer it is one: everything is slow
/// there, and what threads do hardly depends on the code.
#ifdef __SANITIZE_THREAD__
constexpr size_t kMostCodes = 1;
#else
constexpr size_t kMostCodes = std::numeric_limits<size_t>::max();
#endif

size_t threadsOfThisProcess() {
    std::error_code none;  // systems without this information count as none
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task", none),
                                             std::filesystem::directory_iterator()));
}

#define ORVEX_ASK(method, ...) ask(#method, method, __VA_ARGS__)

class FaultSweep : public JniTest {
 protected:
    using Steps = std::function<void()>;

    /// Runs a scenario on a bus of these devices without a fault, then once per fault point: `prepare`,
    /// `steps`, the end of the session. Calls fail from `steps` on. After each fault the next session must
    /// complete the whole scenario like the first, and nothing may leak.
    void sweep(const std::vector<std::string>& devices, const Steps& prepare, const Steps& steps) {
        run_ = [=] {
            bus.command(R"({"op":"reset"})");
            prepare();
            arm();
            steps();
            finish();
        };
        bus.loadScenario(scenarioOf(devices));
        const std::vector<FaultPoint> points = shareOf(pointsOf(rehearse()));
        for (const FaultPoint& point : points) {
            probe(point);
            if (HasFailure()) {
                return;  // later checks would depend on what it has left
            }
        }
        std::printf("%zu fault points, %zu of them reached\n", points.size(), reached_);
        RecordProperty("fault_points", static_cast<int>(points.size()));
        EXPECT_GT(reached_, 0U);
    }

    // The steps of scenarios. Each calls one method, stores its result and expects it to be one of the
    // method's own.

    template <class Method, class... Arguments>
    jint ask(const char* name, Method* method, Arguments... arguments) {
        const jint result = call(method, arguments...);
        keep(name, result);
        return result;
    }
    void keep(const std::string& name, jint result) {
        EXPECT_TRUE(mayAnswer(name, result)) << name << " answers " << result;
        answers_.push_back(name + " " + std::to_string(result));
    }
    /// Returns false when there is no session; the scenario then ends.
    bool startSession() { return ask("usbInitialize", usbInitialize) == 0; }
    void startWithList() {
        ASSERT_EQ(0, call(usbInitialize));
        list = listOfVendor();
    }
    void startWithOpenDevice() {
        startWithList();
        ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    }
    void askForRecords() {
        const jint count = ORVEX_ASK(usbGetDeviceListCount, list);
        for (jint index = 0; index < count; ++index) {
            answers_.push_back(infoLine(list, index));
        }
    }
    /// Unplugs one device, plugs in the other one and updates the list. With a fault the events may never
    /// arrive; the list is then flagged by the test.
    void updateAfterExchange(const std::string& pulled, const std::string& plugged) {
        bus.unplug(pulled);
        bus.plug(plugged);
        const bool flagged = eventually([&] { return isFlagged(handle()); }, patience_);
        EXPECT_TRUE(flagged || faulty_);
        int32_t status = 0;
        findDeviceList(handle(), status)->changePending.store(true);
        ORVEX_ASK(usbUpdateDeviceList, list, 0);
    }
    /// A read on the silent endpoint 0x84 on a thread of its own; returns when the device has it, or it has
    /// failed.
    std::unique_ptr<BackgroundCall> blockedRead() {
        auto read = std::make_unique<BackgroundCall>(
            [this] { return call(usbReadBulkPipe, list, 0, 0x84, 64, timeoutMs(), blocked_.java()); });
        const auto waits = [&] { return bus.pending("tool", 0x84) != 0; };
        EXPECT_TRUE(eventually([&] { return waits() || read->hasReturned(); }));
        EXPECT_TRUE(waits() || faulty_);
        return read;
    }
    jint timeoutMs() const { return static_cast<jint>(patience_.count()); }

    bool sweepsLibusb = true;
    size_t share = 0;  ///< the share of the fault points that this test takes
    size_t shares = 1;
    jint list = -1;
    FakeByteArray bytes{std::vector<jbyte>(512)};

 private:
    uint32_t handle() const { return static_cast<uint32_t>(list); }

    void arm() {
        bus.clearCalls();
        if (faulty_) {
            bus.failCall(point_.call, point_.nth, point_.code);
        }
    }
    void finish() {
        if (g_SessionId == 0) {
            ORVEX_ASK(usbReleaseDeviceList, list);
            ORVEX_ASK(usbRelease, 0);
        }
        bus.clearFaults();
    }
    /// Runs the scenario without a fault and returns the calls that it makes.
    std::map<std::string, uint64_t> rehearse() {
        for (int round = 0; round < 2; ++round) {  // the first one starts threads that remain
            perform(false);
        }
        asRehearsed_ = answers_;
        threads_ = threadsOfThisProcess();
        return bus.calls();
    }
    std::vector<FaultPoint> pointsOf(const std::map<std::string, uint64_t>& calls) const {
        std::vector<FaultPoint> points;
        for (const auto& [name, count] : calls) {
            const DependencyFault* fault = dependencyFault(name);
            EXPECT_NE(nullptr, fault) << "nobody has said how this one fails: " << name;
            const bool swept = fault != nullptr && (sweepsLibusb || name.rfind("libusb_", 0) != 0);
            const uint64_t last = swept ? std::min<uint64_t>(count, fault->mostCalls) : 0;
            for (unsigned nth = 1; nth <= last; ++nth) {
                for (size_t i = 0; i < std::min(kMostCodes, fault->codes.size()); ++i) {
                    points.push_back({name, nth, fault->codes[i]});
                }
            }
        }
        return points;
    }
    std::vector<FaultPoint> shareOf(const std::vector<FaultPoint>& points) const {
        std::vector<FaultPoint> chosen;
        for (size_t i = share; i < points.size(); i += shares) {
            chosen.push_back(points[i]);
        }
        return chosen;
    }
    void probe(const FaultPoint& point) {
        SCOPED_TRACE(point.call + ", call " + std::to_string(point.nth) + ", code " +
                     std::to_string(point.code));
        point_ = point;
        perform(true);
        reached_ += bus.calls()[point.call] >= point.nth ? 1U : 0U;
        perform(false);
        EXPECT_EQ(asRehearsed_, answers_) << "the next session";
        expectNothingLeft();
    }
    void perform(bool faulty) {
        faulty_ = faulty;
        patience_ = milliseconds(faulty ? 10 : 20'000);
        answers_.clear();
        run_();
        // Checked now: the next run begins with a reset bus.
        EXPECT_THAT(bus.violations(), ::testing::IsEmpty());
    }
    void expectNothingLeft() {
        for (const char* things : {"transfers not freed", "hid devices open", "I/O Kit objects in use"}) {
            EXPECT_EQ(0, bus.tally(things)) << things;
        }
        EXPECT_TRUE(eventually([&] { return threadsOfThisProcess() <= threads_; })) << "a thread is stuck";
    }

    Steps run_;
    FaultPoint point_;
    bool faulty_ = false;
    milliseconds patience_{0};
    std::vector<std::string> answers_;
    std::vector<std::string> asRehearsed_;
    size_t threads_ = 0;
    size_t reached_ = 0;
    FakeByteArray blocked_{std::vector<jbyte>(64)};
};

using HidFaultSweep = FaultSweep;

/// For a slow scenario: four tests, each with every fourth fault point.
class FaultSweepInQuarters : public FaultSweep, public ::testing::WithParamInterface<size_t> {
 protected:
    FaultSweepInQuarters() {
        share = GetParam();
        shares = 4;
    }
};

using HidFaultSweepInQuarters = FaultSweepInQuarters;

const auto kQuarters = ::testing::Range(size_t{0}, size_t{4});
INSTANTIATE_TEST_SUITE_P(Points, FaultSweepInQuarters, kQuarters);
INSTANTIATE_TEST_SUITE_P(Points, HidFaultSweepInQuarters, kQuarters);

/// Two interfaces, the second of which is listed as a record of its own.
const std::string kTwoRecords = R"({"interfaces":[{"number":0,"class":3},
    {"number":1,"subClass":255,"endpoints":[{"address":"0x85"},{"address":"0x05"}]}]})";

TEST_F(FaultSweep, Lists) {
    const auto nothing = [] {};
    sweep({deviceJson("tool", kTwoRecords)}, nothing, [this] {
        if (!startSession()) {
            return;
        }
        FakeIntArray ids({kVendor});
        list = call(usbCreateDeviceList2, 0, ids.java());
        const jint single = call(usbCreateDeviceList, 0, kVendor + 1);
        keep("usbCreateDeviceList2", std::min(list, 0));
        keep("usbCreateDeviceList", std::min(single, 0));
        askForRecords();
        for (const jint type : {1, 2, 3, 5}) {
            ORVEX_ASK(usbGetDeviceDescriptor, list, 0, type, 0x81, 64, bytes.java());
        }
        ORVEX_ASK(usbGetEndpointList, list, 1, bytes.java());
        ORVEX_ASK(usbReleaseDeviceList, single);
    });
}

TEST_F(FaultSweep, OpenAndClose) {
    sweep(
        {deviceJson("tool", R"({"activeConfiguration":0})")}, [this] { startWithList(); },
        [this] {
            ORVEX_ASK(usbOpenDevice, list, 0);
            ORVEX_ASK(usbResetDevice, list, 0);
            ORVEX_ASK(usbCloseDevice, list, 0);
            ORVEX_ASK(usbOpenDevice, list, 0);
            ORVEX_ASK(usbCloseDevice, list, 0);
        });
}

TEST_F(FaultSweep, Transfers) {
    const std::string control = R"({"control":[{"requestType":0,"request":0,"reply":""}]})";
    sweep(
        {deviceJson("tool", control)}, [this] { startWithOpenDevice(); },
        [this] {
            FakeByteArray setup(std::vector<jbyte>(8));
            ORVEX_ASK(usbWriteBulkPipe, list, 0, 0x01, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbReadBulkPipe, list, 0, 0x81, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbWriteBulkPipeEx, list, 0, 0x01, 64, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbReadBulkPipeEx, list, 0, 0x81, 64, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbWriteInterruptPipe, list, 0, 0x02, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbReadInterruptPipe, list, 0, 0x82, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbWriteInterruptPipeEx, list, 0, 0x02, 65, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbReadInterruptPipeEx, list, 0, 0x82, 64, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbWriteControlPipe, list, 0, 0, timeoutMs(), setup.java());
            ORVEX_ASK(usbReadControlPipe, list, 0, 0, timeoutMs(), setup.java());
            ORVEX_ASK(usbCloseDevice, list, 0);
        });
}

TEST_F(FaultSweep, CancelAndCloseDuringATransfer) {
    sweep(
        {deviceJson("tool")}, [this] { startWithOpenDevice(); },
        [this] {
            auto read = blockedRead();
            ORVEX_ASK(usbCancelPipeTransfer, list, 0, 0x84);
            keep("usbReadBulkPipe", read->result());
            read = blockedRead();
            ORVEX_ASK(usbCloseDevice, list, 0);
            keep("usbReadBulkPipe", read->result());
        });
}

TEST_P(FaultSweepInQuarters, ADeviceGoesAndComesBack) {
    const std::vector<std::string> devices{deviceJson("tool"), deviceJson("other", R"({"plugged":false})")};
    sweep(
        devices, [this] { startWithOpenDevice(); },
        [this] {
            updateAfterExchange("tool", "other");
            ORVEX_ASK(usbReadBulkPipe, list, 0, 0x81, 64, timeoutMs(), bytes.java());
            askForRecords();
            updateAfterExchange("other", "tool");
            ORVEX_ASK(usbOpenDevice, list, 0);
            ORVEX_ASK(usbWriteBulkPipe, list, 0, 0x03, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbCloseDevice, list, 0);
            askForRecords();
        });
}

TEST_F(FaultSweep, TheSessionEndsDuringATransfer) {
    sweep(
        {deviceJson("tool")}, [this] { startWithOpenDevice(); },
        [this] {
            const auto read = blockedRead();
            ORVEX_ASK(usbRelease, 0);
            keep("usbReadBulkPipe", read->result());
            ORVEX_ASK(usbReleaseDeviceList, list);
            ORVEX_ASK(usbCloseDevice, list, 0);
        });
}

TEST_F(HidFaultSweep, Lists) {
    const auto nothing = [] {};
    sweep({hidJson("tool")}, nothing, [this] {
        if (startSession()) {
            list = listOfVendor();
            askForRecords();
            ORVEX_ASK(usbGetDeviceDescriptor, list, 0, 2, 0, 64, bytes.java());
        }
    });
}

TEST_F(HidFaultSweep, Reports) {
    sweep(
        {hidJson("tool")}, [this] { startWithList(); },
        [this] {
            ORVEX_ASK(usbOpenDevice, list, 0);
            ORVEX_ASK(usbWriteInterruptPipe, list, 0, 0x01, 65, timeoutMs(), bytes.java());
            ORVEX_ASK(usbReadInterruptPipe, list, 0, 0x81, 128, timeoutMs(), bytes.java());
            ORVEX_ASK(usbWriteInterruptPipeEx, list, 0, 0x01, 64, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbReadInterruptPipeEx, list, 0, 0x81, 64, timeoutMs(), bytes.java(), 64, 0);
            ORVEX_ASK(usbCloseDevice, list, 0);
        });
}

TEST_P(HidFaultSweepInQuarters, ADeviceGoesAndComesBack) {
    sweepsLibusb = false;  // whose calls are those of a plain device
    const std::vector<std::string> devices{hidJson("tool"), hidJson("other", R"({"plugged":false})")};
    sweep(
        devices, [this] { startWithOpenDevice(); },
        [this] {
            updateAfterExchange("tool", "other");
            askForRecords();
            updateAfterExchange("other", "tool");
            ORVEX_ASK(usbOpenDevice, list, 0);
            ORVEX_ASK(usbWriteInterruptPipe, list, 0, 0x01, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbReadInterruptPipe, list, 0, 0x81, 64, timeoutMs(), bytes.java());
            ORVEX_ASK(usbCloseDevice, list, 0);
            askForRecords();
        });
}

}  // namespace
