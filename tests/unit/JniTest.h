#pragma once

#include <NativeMethods.h>

#include "FakeJni.h"
#include "LibUSBJNILink/SessionMethods.h"
#include "UsbTest.h"

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
