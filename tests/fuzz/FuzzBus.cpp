#include "FuzzBus.h"

#include <gtest/gtest.h>

#include "FuzzInput.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"
#include "UsbTest.h"

namespace {

// The helpers of the unit tests report failures through GoogleTest, which runs no test here.
const bool g_complaintsEndTheProgram = [] {
    GTEST_FLAG_SET(throw_on_failure, true);
    return true;
}();

}  // namespace

FuzzSession::FuzzSession(std::initializer_list<std::string> devices, uint16_t claimedLength)
    : configuration_(claimedLength) {
    plugDevices(devices);
    require(LibUSB_Initialize(&context) == 0, "a session starts");
}

FuzzSession::~FuzzSession() {
    for (uint32_t list = 0; list < g_NextDeviceListHandle; ++list) {
        LibUSB_ReleaseDeviceList(list);
    }
    LibUSB_Release(&context);
    forgetLists();
    requireNoViolations();
}

void plugDevices(std::initializer_list<std::string> devices) {
    simbus::Bus::instance().loadScenario(scenarioOf(devices));
}

void forgetLists() {
    while (g_pDeviceList != nullptr) {
        const tagUSB_DEVICE_LIST* list = g_pDeviceList;
        require(list->pFirst == nullptr && list->pContext == nullptr, "lists are left empty");
        g_pDeviceList = list->pNextList;
        delete list;
    }
    g_NextDeviceListHandle = 0;
}

void requireNoViolations() {
    for (const std::string& violation : simbus::Bus::instance().violations()) {
        require(false, violation.c_str());
    }
}
