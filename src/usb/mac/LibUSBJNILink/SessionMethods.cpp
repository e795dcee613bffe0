#include "LibUSBJNILink/SessionMethods.h"

#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include "LibUSBJNILink/EntryFrame.h"
#include "MacOSXUSBAccess/session/Session.h"
#include "ground/ResultCodes.h"

int32_t g_SessionId = -1;
int32_t g_LastError = 0;
libusb_context* g_pContext = nullptr;

namespace {

constexpr jint kNoSession = -1;
constexpr jint kOpenSession = 0;

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbInitialize(JNIEnv* /*env*/, jobject /*self*/) {
    return answer([] {
        if (g_SessionId != kNoSession) {
            return kSessionOpen;
        }
        const jint result = LibUSB_Initialize(&g_pContext);
        if (result == 0) {
            g_SessionId = kOpenSession;
        }
        return result;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbRelease(JNIEnv* /*env*/, jobject /*self*/,
                                                               jint sessionId) {
    return answer([sessionId] {
        if (sessionId != g_SessionId) {
            return kWrongSession;
        }
        LibUSB_Release(&g_pContext);
        g_SessionId = kNoSession;
        return 0;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetLibVersion(JNIEnv* /*env*/, jobject /*self*/) {
    return answer([] { return LibUSB_GetLibVersion(); });
}
