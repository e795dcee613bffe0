// The session: usbInitialize, usbRelease and the two functions behind them.
#include <gmock/gmock.h>
#include <libusb.h>

#include "CallOrder.h"
#include "DebugUtil/DebugLog.h"
#include "HotplugUsb/HotplugUsb.h"
#include "JniTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"

using ::testing::ElementsAre;

namespace {

/// The result of libusb_get_version; null calls libusb's own.
const libusb_version* g_version = nullptr;

using Session = JniTest;

std::string versionText() {
    const libusb_version* version = libusb_get_version();
    char text[32];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d-%s", version->major, version->minor, version->micro,
                  version->nano, version->rc);
    return text;
}

}  // namespace

extern "C" {

const libusb_version* __real_libusb_get_version();
const libusb_version* __wrap_libusb_get_version();

const libusb_version* __wrap_libusb_get_version() {
    return g_version != nullptr ? g_version : __real_libusb_get_version();
}
}

TEST_F(Session, StartsClosed) {
    EXPECT_EQ(-1, g_SessionId);
    EXPECT_EQ(0, g_LastError);
    EXPECT_EQ(nullptr, g_pContext);
}

TEST_F(Session, OpensOnceAndClosesOnce) {
    EXPECT_EQ(-116, call(usbRelease, 0));
    EXPECT_EQ(0, call(usbInitialize));
    EXPECT_EQ(-115, call(usbInitialize));
    EXPECT_EQ(-116, call(usbRelease, 1));
    EXPECT_EQ(0, call(usbRelease, 0));
    EXPECT_EQ(-116, call(usbRelease, 0));
}

TEST_F(Session, ASecondInitializeChangesNothing) {
    openSession({});
    libusb_context* before = g_pContext;
    EXPECT_EQ(-115, call(usbInitialize));
    EXPECT_EQ(before, g_pContext);
    EXPECT_EQ(0, g_SessionId);
    EXPECT_EQ(0U, callsOf("libusb_init"));
}

TEST_F(Session, AReleaseWithAWrongIdChangesNothing) {
    openSession({deviceJson("tool")});
    EXPECT_EQ(-116, call(usbRelease, 1));
    EXPECT_EQ(-116, call(usbRelease, -1));
    EXPECT_EQ(0, g_SessionId);
    EXPECT_EQ(0U, callsOf("libusb_exit"));
    EXPECT_EQ(1, call(usbGetDeviceListCount, listOfVendor()));
}

TEST_F(Session, ANewInitializeAfterAReleaseMakesANewContext) {
    openSession({});
    ASSERT_EQ(0, call(usbRelease, 0));
    EXPECT_EQ(0, call(usbInitialize));
    EXPECT_EQ(1U, callsOf("libusb_init"));
    EXPECT_EQ(1U, callsOf("libusb_exit"));
}

TEST_F(Session, TellsItsVersionInEveryState) {
    EXPECT_EQ(347, call(usbGetLibVersion));
    openSession({});
    EXPECT_EQ(347, call(usbGetLibVersion));
    call(usbRelease, 0);
    EXPECT_EQ(347, call(usbGetLibVersion));
}

TEST_F(Session, ListCreationWantsTheOpenSessionsId) {
    FakeIntArray ids({kVendor});
    EXPECT_EQ(-116, call(usbCreateDeviceList, 0, kVendor));
    EXPECT_EQ(-116, call(usbCreateDeviceList2, 0, ids.java()));
    openSession({});
    EXPECT_EQ(-116, call(usbCreateDeviceList, 1, kVendor));
    EXPECT_EQ(-116, call(usbCreateDeviceList2, 1, ids.java()));
    EXPECT_EQ(0, jni.pins) << "the array was touched before the session was checked";
    EXPECT_EQ(nullptr, g_pDeviceList);
}

TEST_F(Session, OnlyTheFourSessionMethodsLookAtTheSession) {
    EXPECT_EQ(0, call(usbGetDeviceListCount, 0));
    EXPECT_EQ(-104, call(usbUpdateDeviceList, 0, 0));
    EXPECT_EQ(-104, call(usbReleaseDeviceList, 0));
    EXPECT_EQ(-114, call(usbOpenDevice, 0, 0));
    EXPECT_EQ("", infoLine(0, 0));
}

TEST_F(Session, AFailingLibusbStartKeepsTheSessionClosed) {
    for (const int code : {-1, -3, -11, -99}) {
        bus.failCall("libusb_init", 1, code);
        EXPECT_EQ(code, call(usbInitialize));
        EXPECT_EQ(-1, g_SessionId);
        EXPECT_EQ(nullptr, g_pContext);
    }
    EXPECT_EQ(0U, callsOf("libusb_exit"));
}

TEST_F(Session, TheHotplugLoopOfAFailedStartAdoptsTheNextContext) {
    bus.failCall("libusb_init", 1, LIBUSB_ERROR_OTHER);
    ASSERT_EQ(LIBUSB_ERROR_OTHER, call(usbInitialize));
    EXPECT_TRUE(g_eventLoopRunning.load()) << "the start is attempted whatever libusb_init answered";
    openSession({deviceJson("tool", R"({"plugged":false})")});
    const auto list = static_cast<uint32_t>(listOfVendor());
    plugAndWait("tool", list);
    EXPECT_EQ(0, call(usbUpdateDeviceList, static_cast<jint>(list), 0));
    EXPECT_EQ(1, call(usbGetDeviceListCount, static_cast<jint>(list)));
}

TEST_F(Session, InitializeWithoutAPlaceForTheContextIsRefused) {
    EXPECT_EQ(-200, LibUSB_Initialize(nullptr));
    EXPECT_EQ(0U, callsOf("libusb_init"));
    EXPECT_FALSE(g_eventLoopRunning.load());
}

TEST_F(Session, InitializeLogsLibusbsVersion) {
    std::vector<std::string> lines = debugLinesOf([&] {
        startSession({});
        DN_WriteStr("next", 1);
    });
    EXPECT_THAT(lines, ElementsAre("LibUSB_Initialize libusb version: : '" + versionText() + "'", "next"));
}

TEST_F(Session, InitializeLogsLibusbsVersionWhenItsStartFailed) {
    bus.failCall("libusb_init", 1, LIBUSB_ERROR_IO);
    const auto lines = debugLinesOf([&] { EXPECT_EQ(LIBUSB_ERROR_IO, LibUSB_Initialize(&context)); });
    EXPECT_THAT(lines, ElementsAre("LibUSB_Initialize libusb version: : '" + versionText() + "'"));
}

TEST_F(Session, InitializeCutsALongVersionAt31Characters) {
    const libusb_version longOne = {1, 2, 3, 4, "a-release-candidate-of-a-long-name", ""};
    g_version = &longOne;
    const auto lines = debugLinesOf([&] { startSession({}); });
    g_version = nullptr;
    EXPECT_THAT(lines, ElementsAre("LibUSB_Initialize libusb version: : '1.2.3.4-a-release-candidate-of-'"));
}

TEST_F(Session, InitializeClearsTheContextBeforeLibusbSetsIt) {
    context = reinterpret_cast<libusb_context*>(&context);
    bus.failCall("libusb_init", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(LIBUSB_ERROR_IO, LibUSB_Initialize(&context));
    EXPECT_EQ(nullptr, context);
}

TEST_F(Session, ReleaseWithoutAContextIsLoggedAndRefused) {
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-101, LibUSB_Release(&context)); });
    EXPECT_THAT(lines, ElementsAre("[LibUSB_Release] entry", "[LibUSB_Release] exit: -101"));
    EXPECT_EQ(0U, callsOf("libusb_exit"));
}

TEST_F(Session, ReleaseLogsItsWay) {
    startSession({});
    createList({kVendor});
    const int handle = g_hotPlugCallback.at(kVendor);
    const auto lines = debugLinesOf([&] { endSession(); });
    EXPECT_THAT(lines, ElementsAre("[LibUSB_Release] entry", "[LibUSB_Release] valid context",
                                   "[unregisterForHotplug]: callbackHandle: " + std::to_string(handle) +
                                       " for vendor_id: 6a5c",
                                   "[LibUSB_Release] exit: 0"));
}

TEST_F(Session, ReleaseEndsTheWatchesThenTheThreadThenTheContext) {
    startSession({});
    createList({kVendor});
    bool loopRanAtDeregistration = false;
    bool loopRanAtExit = true;
    bool deregisteredAtExit = false;
    bus.onCall("libusb_hotplug_deregister_callback",
               [&] { loopRanAtDeregistration = g_eventLoopRunning.load(); });
    bus.onCall("libusb_exit", [&] {
        deregisteredAtExit = g_hotPlugCallback.empty();
        loopRanAtExit = g_eventLoopRunning.load() || g_eventLoopThread.joinable();
    });
    endSession();
    EXPECT_TRUE(loopRanAtDeregistration);
    EXPECT_TRUE(deregisteredAtExit);
    EXPECT_FALSE(loopRanAtExit);
    EXPECT_EQ(1U, callsOf("libusb_exit"));
}

TEST_F(Session, ReleaseLeavesTheContextPointerAsItIs) {
    startSession({});
    libusb_context* before = context;
    endSession();
    EXPECT_EQ(before, context);
}

TEST_F(Session, TheTwoUnusedFunctionsDoNothing) {
    EXPECT_EQ(nullptr, LibUSB_get_libusb());
    LibUSB_free_libusb();
    EXPECT_EQ(nullptr, LibUSB_get_libusb());
}

TEST_F(Session, NoFailureLeavesATraceInTheReservedError) {
    bus.failCall("libusb_init", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(LIBUSB_ERROR_IO, call(usbInitialize));
    openSession({deviceJson("tool")});
    EXPECT_EQ(-115, call(usbInitialize));
    const jint list = listOfVendor();
    EXPECT_EQ(-103, call(usbUpdateDeviceList, list + 1, 0));
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    EXPECT_EQ(-107, call(usbOpenDevice, list, 0));
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    EXPECT_EQ(-105, call(usbOpenDevice, list, 0));
    FakeByteArray bytes(std::vector<jbyte>(8));
    bus.failCall("libusb_submit_transfer", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(-113, call(usbReadBulkPipe, list, 0, 0x83, 8, 1000, bytes.java()));
    EXPECT_EQ(-150, call(usbReadBulkPipe, list, 0, 0x84, 8, 20, bytes.java()));
    EXPECT_EQ(0, call(usbCloseDevice, list, 0));
    EXPECT_EQ(-116, call(usbRelease, 1));
    EXPECT_EQ(0, call(usbRelease, 0));
    EXPECT_EQ(0, g_LastError);
}
