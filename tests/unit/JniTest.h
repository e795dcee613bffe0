#pragma once

#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include "FakeJni.h"
#include "LibUSBJNILink/SessionMethods.h"
#include "UsbTest.h"

// The native methods under their Java names.
#define ORVEX_NATIVE(method) constexpr auto* method = Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_##method
ORVEX_NATIVE(usbInitialize);
ORVEX_NATIVE(usbRelease);
ORVEX_NATIVE(usbCreateDeviceList);
ORVEX_NATIVE(usbCreateDeviceList2);
ORVEX_NATIVE(usbUpdateDeviceList);
ORVEX_NATIVE(usbReleaseDeviceList);
ORVEX_NATIVE(usbGetDeviceListCount);
ORVEX_NATIVE(usbGetDeviceInfo);
ORVEX_NATIVE(usbGetChangeInfo);
ORVEX_NATIVE(usbOpenDevice);
ORVEX_NATIVE(usbCloseDevice);
ORVEX_NATIVE(usbResetDevice);
ORVEX_NATIVE(usbRestartDevice);
ORVEX_NATIVE(usbResetPipe);
ORVEX_NATIVE(usbCancelPipeTransfer);
ORVEX_NATIVE(usbWriteControlPipe);
ORVEX_NATIVE(usbReadControlPipe);
ORVEX_NATIVE(usbWriteBulkPipe);
ORVEX_NATIVE(usbReadBulkPipe);
ORVEX_NATIVE(usbWriteInterruptPipe);
ORVEX_NATIVE(usbReadInterruptPipe);
ORVEX_NATIVE(usbWriteInterruptPipeEx);
ORVEX_NATIVE(usbReadInterruptPipeEx);
ORVEX_NATIVE(usbWriteBulkPipeEx);
ORVEX_NATIVE(usbReadBulkPipeEx);
ORVEX_NATIVE(usbGetDeviceDescriptor);
ORVEX_NATIVE(usbGetEndpointList);
ORVEX_NATIVE(usbGetLibVersion);
#undef ORVEX_NATIVE

/// A test that calls the library as Java does. At its end it releases every list, and the session if one is
/// left.
class JniTest : public UsbTest {
 protected:
    void TearDown() override;

    /// Calls a native method: call(usbOpenDevice, list, index).
    template <class Method, class... Arguments>
    auto call(Method* method, Arguments... arguments) {
        return method(jni.env(), nullptr, arguments...);
    }

    /// Puts the devices on the bus and opens the session.
    void openSession(std::initializer_list<std::string> devices);
    /// A multi-vendor list of kVendor.
    jint listOfVendor();
    /// The line that usbGetDeviceInfo returns to Java.
    std::string infoLine(jint list, jint index);

    FakeJni jni;
};
