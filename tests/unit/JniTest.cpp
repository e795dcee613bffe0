#include "JniTest.h"

#include "MacOSXUSBAccess/records/DeviceListChain.h"

void JniTest::TearDown() {
    bus.clearFaults();
    bus.clearHooks();
    if (g_SessionId == 0) {
        for (uint32_t list = 0; list < g_NextDeviceListHandle; ++list) {
            call(usbReleaseDeviceList, static_cast<jint>(list));
        }
        EXPECT_EQ(0, call(usbRelease, 0));
    }
    UsbTest::TearDown();
}

void JniTest::openSession(std::initializer_list<std::string> devices) {
    bus.loadScenario(scenarioOf(devices));
    ASSERT_EQ(0, call(usbInitialize));
    bus.clearCalls();
}

jint JniTest::listOfVendor() {
    FakeIntArray ids({kVendor});
    return call(usbCreateDeviceList2, 0, ids.java());
}

std::string JniTest::infoLine(jint list, jint index) {
    call(usbGetDeviceInfo, list, index);
    return jni.strings.back();
}
