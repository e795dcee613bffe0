#include <gmock/gmock.h>
#include <libusb.h>

#include "DescriptorBytes.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

constexpr const char* kStep = "LibUSB_CreateDeviceList2 ";

class ListTrace : public ListTest {
 protected:
    std::vector<std::string> traceOf(const std::vector<int32_t>& ids) {
        return debugLinesOf([&] { list_ = createList(ids); });
    }
    /// The numbers of the steps from 07 on (two digits and an optional letter).
    std::vector<std::string> stepsOf(const std::vector<int32_t>& ids) {
        std::vector<std::string> steps;
        for (const std::string& line : traceOf(ids)) {
            const std::string step = line.rfind(kStep, 0) == 0 ? line.substr(25) : "";
            if (!step.empty() && step >= "07" && step < "3") {
                steps.push_back(step.substr(0, step.find_first_of(" :")));
            }
        }
        return steps;
    }
    libusb_device* device() { return record(list_, 0).pDevice; }

 private:
    uint32_t list_ = 0;
};

std::string number(const std::string& label, uint32_t value) {
    char text[64];
    std::snprintf(text, sizeof text, " : %u (0x%04X)", value, value);
    return label + text;
}

TEST_F(ListTrace, NumbersItsSteps) {
    startSession({deviceJson("tool", R"({"bus":2,"bcdDevice":"0x0123"})")});
    const std::vector<std::string> trace = traceOf({kVendor});
    const std::string pointer = pointerText(device());
    const auto step = [](const std::string& text) { return kStep + text; };
    EXPECT_THAT(
        trace,
        ElementsAreArray({
            std::string(),
            step("01: enter =============================================="),
            std::string("[registerForHotplug]: registered callback 1 for vendor: 6a5c"),
            number(step("libusb_get_device_list:deviceCount="), 1),
            number(step("02:"), 1),
            number(step("03: dVID"), 0x6A5C),
            step("04"),
            "[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + pointer,
            number(step("05: idVendor"), 0x6A5C),
            number(step("06: idProduct"), 0x1001),
            number(step("libusb_get_bus_number:bus_number="), 2),
            number(step("libusb_get_device_address:port_number="), libusb_get_device_address(device())),
            "[tlvn_libusb_open] ?: 2.291 interface: 0 dev: " + pointer,
            step("07"),
            step("08 : 'Talvane'"),
            step("09 : 'Echo Tool'"),
            step("10 : 'tool'"),
            number(step("11: res"), 18),
            number(step("13: cdCnt"), 88),
            number(step("14 : ii"), 0),
            number(step("14 : ii"), 9),
            step("15"),
            step("16"),
            step("18"),
            "[tlvn_libusb_close] tool: 2.291 interface: 0 dev: " + pointer,
            step("20"),
        }));
}

TEST_F(ListTrace, CountsAllDevicesAndFollowsTheWantedOnes) {
    startSession({deviceJson("x", R"({"vendorId":"0x1234"})"), deviceJson("y", R"({"vendorId":"0x1235"})")});
    EXPECT_THAT(traceOf({kVendor}),
                AllOf(Contains(number("LibUSB_CreateDeviceList2 libusb_get_device_list:deviceCount=", 2)),
                      Contains("LibUSB_CreateDeviceList2 02: : 1 (0x0001)"),
                      Contains("LibUSB_CreateDeviceList2 02: : 2 (0x0002)"),
                      Contains("LibUSB_CreateDeviceList2 03: dVID : 4660 (0x1234)"),
                      Contains("LibUSB_CreateDeviceList2 03: dVID : 4661 (0x1235)"),
                      Not(Contains("LibUSB_CreateDeviceList2 04"))));
}

TEST_F(ListTrace, ShowsAFailedEnumerationUnsigned) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_get_device_list", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(number("LibUSB_CreateDeviceList2 libusb_get_device_list:deviceCount=", 0xFFFFFFFF),
              traceOf({kVendor}).back());
}

TEST_F(ListTrace, ADeviceWithoutDescriptorEndsWithItsNumber) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_get_device_descriptor", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ("LibUSB_CreateDeviceList2 02: : 1 (0x0001)", traceOf({kVendor}).back());
}

TEST_F(ListTrace, ADeviceThatCannotBeOpenedEndsWithStep21) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    const std::vector<std::string> trace = traceOf({kVendor});
    EXPECT_EQ("LibUSB_CreateDeviceList2 21: open failed", trace.back());
    EXPECT_EQ("[tlvn_libusb_open] ?: 1.256 interface: 0 dev: " + pointerText(device()),
              *(trace.rbegin() + 1));
}

TEST_F(ListTrace, AStringThatCannotBeReadIsShownAsUnknown) {
    startSession({deviceJson("tool", R"({"languages":[]})")});
    EXPECT_THAT(traceOf({kVendor}), AllOf(Contains("LibUSB_CreateDeviceList2 08 : '?'"),
                                          Contains("LibUSB_CreateDeviceList2 09 : '?'"),
                                          Contains("LibUSB_CreateDeviceList2 10 : '?'")));
}

TEST_F(ListTrace, ATextStandsInItAsItIsSoThatADeviceCanForgeLines) {
    startSession({deviceJson("tool", R"({"product":"Tool\n[12345] forged \u001b[2J"})")});
    EXPECT_THAT(traceOf({kVendor}),
                AllOf(Contains("LibUSB_CreateDeviceList2 09 : 'Tool"), Contains("forged \x1B[2J'")));
}

TEST_F(ListTrace, ADeviceDescriptorThatCannotBeReadAgainShowsOneFixedCode) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_get_device_descriptor", 2, LIBUSB_ERROR_IO);
    EXPECT_THAT(traceOf({kVendor}),
                AllOf(Contains("LibUSB_CreateDeviceList2 11: res : 4294967165 (0xFFFFFF7D)"),
                      Not(Contains("LibUSB_CreateDeviceList2 15")), Contains("LibUSB_CreateDeviceList2 18")));
}

TEST_F(ListTrace, AnUnsupportedDeviceClassTakesStep12) {
    startSession({deviceJson("tool", R"({"deviceClass":2})")});
    EXPECT_THAT(stepsOf({kVendor}),
                ElementsAre("07", "08", "09", "10", "11", "12", "13", "14", "14", "15", "18", "20"));
}

TEST_F(ListTrace, AnUnsupportedInterfaceClassTakesStep17) {
    startSession({deviceJson("tool", rawConfiguration(configurationBytes({interfaceBytes(0, 0x08)})))});
    EXPECT_THAT(stepsOf({kVendor}),
                ElementsAre("07", "08", "09", "10", "11", "13", "14", "14", "15", "16", "17", "18", "20"));
}

TEST_F(ListTrace, AClassOfTheDeviceItselfSkipsStep16) {
    startSession({deviceJson("tool", R"({"deviceClass":255})")});
    EXPECT_THAT(stepsOf({kVendor}),
                ElementsAre("07", "08", "09", "10", "11", "13", "14", "14", "15", "18", "20"));
}

TEST_F(ListTrace, AMissingConfigurationTakesStep19aAnd19b) {
    startSession({deviceJson("tool")});
    bus.failCall("libusb_get_active_config_descriptor", 1, LIBUSB_ERROR_NOT_FOUND);
    const std::vector<std::string> trace = traceOf({kVendor});
    EXPECT_THAT(trace, Contains("LibUSB_CreateDeviceList2 13: cdCnt : 4294967165 (0xFFFFFF7D)"));
    EXPECT_THAT(std::vector<std::string>(trace.end() - 4, trace.end()),
                ElementsAre("LibUSB_CreateDeviceList2 19a", "LibUSB_CreateDeviceList2 19b",
                            "[tlvn_libusb_close] tool: 1.256 interface: 0 dev: " + pointerText(device()),
                            "LibUSB_CreateDeviceList2 20"));
}

TEST_F(ListTrace, AZeroLengthTakesStep19bAlone) {
    startSession({deviceJson("tool", configurationReply(configurationBytes({{0, 4}, interfaceBytes(0)})))});
    EXPECT_THAT(stepsOf({kVendor}), ElementsAre("07", "08", "09", "10", "11", "13", "14", "14", "19b", "20"));
}

TEST_F(ListTrace, AConfigurationWithoutInterfaceEndsAtItsEnd) {
    startSession({deviceJson("tool", rawConfiguration(configurationBytes({{3, 0x30, 0}})))});
    EXPECT_THAT(stepsOf({kVendor}), ElementsAre("07", "08", "09", "10", "11", "13", "14", "14", "20"));
}

TEST_F(ListTrace, TheVariableIsReadAtEveryStep) {
    startSession({deviceJson("tool")});
    bus.onCall("libusb_open", [] { unsetenv("ORVEXCOMM_DEBUG"); });
    bus.onCall("libusb_close", [] { setenv("ORVEXCOMM_DEBUG", "1", 1); });
    const std::vector<std::string> setAtTheStart = traceOf({kVendor});
    EXPECT_THAT(setAtTheStart,
                AllOf(Contains("LibUSB_CreateDeviceList2 04"), Not(Contains("LibUSB_CreateDeviceList2 07"))));
    EXPECT_EQ("LibUSB_CreateDeviceList2 20", setAtTheStart.back());
    const std::string unsetAtTheStart = standardErrorOf([&] {
        unsetenv("ORVEXCOMM_DEBUG");
        createList({kVendor, 0x6A5D});
        unsetenv("ORVEXCOMM_DEBUG");
    });
    EXPECT_THAT(unsetAtTheStart, ::testing::EndsWith("LibUSB_CreateDeviceList2 20\n"));
    EXPECT_THAT(unsetAtTheStart, Not(::testing::HasSubstr("LibUSB_CreateDeviceList2 04")));
}

TEST_F(ListTrace, AnUpdateTracesOpenAndCloseOnly) {
    startSession({deviceJson("tool")});
    const uint32_t list = createList({kVendor});
    listOf(list).changePending = true;
    const std::string pointer = pointerText(record(list, 0).pDevice);
    EXPECT_THAT(debugLinesOf([&] { LibUSB_UpdateDeviceList(list, 0); }),
                ElementsAre("[tlvn_libusb_open] ?: 0.256 interface: 0 dev: " + pointer,
                            "[tlvn_libusb_close] tool: 0.256 interface: 0 dev: " + pointer,
                            "UDL-05 DETemp is already in list : 'tool'"));
}

TEST_F(ListTrace, ASingleCallListTracesOpenAndCloseOnly) {
    startSession({deviceJson("tool")});
    uint32_t list = 0;
    const std::vector<std::string> trace = debugLinesOf([&] { list = createSingleCallList(kVendor); });
    const std::string pointer = pointerText(record(list, 0).pDevice);
    EXPECT_THAT(trace, ElementsAre("[tlvn_libusb_open] ?: 0.256 interface: 0 dev: " + pointer,
                                   "[tlvn_libusb_close] tool: 0.256 interface: 0 dev: " + pointer));
}

TEST_F(ListTrace, TheReuseOfAListIsALineBehindAnEmptyOne) {
    startSession({deviceJson("tool")});
    const uint32_t list = createList({kVendor});
    const std::string enter =
        "LibUSB_CreateDeviceList2 01: enter ==============================================";
    const std::string exists =
        number("LibUSB_CreateDeviceList2 such DeviceList already exists; handle=", list);
    EXPECT_THAT(debugLinesOf([&] {
                    createList({kVendor});
                    createList({kVendor});
                }),
                ElementsAre("", enter, "", exists, "", enter, "", exists));
}

TEST_F(ListTrace, TheReuseOfASingleCallListIsSilent) {
    startSession({deviceJson("tool")});
    createSingleCallList(kVendor);
    EXPECT_THAT(debugLinesOf([&] { createSingleCallList(kVendor); }), ElementsAre());
}

}  // namespace
