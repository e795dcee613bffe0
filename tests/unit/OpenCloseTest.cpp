// Opening a record and closing it.
#include <gmock/gmock.h>
#include <libusb.h>

#include "CallArguments.h"
#include "CallOrder.h"
#include "DebugUtil/DebugLog.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class OpenClose : public IoTest {
 protected:
    /// A listed, closed record of the only device.
    tagUSB_DEVICE_ACCESS_ENTRY& listTool(const std::string& overrides = "{}") {
        startSession({deviceJson("tool", overrides)});
        tagUSB_DEVICE_ACCESS_ENTRY& entry = record(createList({kVendor}), 0);
        bus.clearCalls();
        return entry;
    }

    void expectClosed(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        EXPECT_EQ(0U, entry.isOpen);
        EXPECT_EQ(nullptr, entry.hDevice);
        EXPECT_THAT(entry.callbackInfos, IsEmpty());
    }

    void expectOpensAfterAll(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
        EXPECT_EQ(32U, entry.callbackInfos.size());
    }
};

/// Interface 0 of deviceJson in two configurations, the second of which is active.
constexpr const char* kTwoConfigurations = R"({"interfaces":null, "activeConfiguration":2, "configurations":[
    {"value":1,"interfaces":[{"number":0,"endpoints":[{"address":"0x83","type":"bulk","behaviour":"source"}]}]},
    {"value":2,"interfaces":[{"number":0}]}]})";

/// An interface 0, and an interface 1 that is split off.
constexpr const char* kComposite = R"({"interfaces":[
    {"number":0,"class":255,"subClass":0,"endpoints":[{"address":"0x83","type":"bulk","behaviour":"source"}]},
    {"number":1,"class":255,"subClass":255,"endpoints":[{"address":"0x04","type":"bulk","behaviour":"sink"},
                                                        {"address":"0x84","type":"bulk","behaviour":"source"}]}]})";

std::string openLine(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return "[tlvn_libusb_open] tool: 1.256 interface: 0 dev: " + pointerText(entry.pDevice);
}

std::string closeLine(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return "[tlvn_libusb_close] tool: 1.256 interface: 0 dev: " + pointerText(entry.pDevice);
}

}  // namespace

TEST_F(OpenClose, CloseFreesBothDirectionsOfAnEndpointNumberBeforeTheNextNumber) {
    openTool();
    std::vector<uint8_t> left;  // addresses whose transfer has not been freed yet
    std::vector<uint8_t> order;
    const auto look = [&] {
        for (const uint8_t address : std::exchange(left, {})) {
            if (tool().callbackInfos.count(address) == 0) {
                order.push_back(address);
            } else {
                left.push_back(address);
            }
        }
    };
    for (const auto& [address, transferRecord] : tool().callbackInfos) {
        left.push_back(address);
    }
    bus.onCall("libusb_free_transfer", look);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    look();
    std::vector<uint8_t> expected;
    for (uint8_t number = 0; number < 16; ++number) {
        expected.insert(expected.end(), {number, static_cast<uint8_t>(number | 0x80U)});
    }
    EXPECT_EQ(expected, order);
}

TEST_F(OpenClose, OpensInOrderAndMakes32TransferRecords) {
    auto& entry = listTool();
    entry.kernelDriverDetached = 1;
    const CallOrder order(bus, {"libusb_open", "libusb_kernel_driver_active", "libusb_get_configuration",
                                "libusb_claim_interface", "libusb_alloc_transfer"});
    EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
    auto seen = order.seen();
    ASSERT_EQ(36U, seen.size());
    EXPECT_EQ(32, std::count(seen.begin() + 4, seen.end(), "libusb_alloc_transfer"));
    seen.resize(4);
    EXPECT_THAT(seen, ElementsAre("libusb_open", "libusb_kernel_driver_active", "libusb_get_configuration",
                                  "libusb_claim_interface"));
    EXPECT_EQ(1U, entry.isOpen);
    EXPECT_EQ(0U, entry.kernelDriverDetached);
    EXPECT_NE(nullptr, entry.hDevice);
    EXPECT_EQ(0U, callsOf("libusb_detach_kernel_driver"));
}

TEST_F(OpenClose, HasARecordForEveryEndpointAddress) {
    openTool();
    ASSERT_EQ(32U, tool().callbackInfos.size());
    for (uint8_t number = 0; number < 16; ++number) {
        for (const auto address : {number, static_cast<uint8_t>(number | 0x80)}) {
            ASSERT_EQ(1U, tool().callbackInfos.count(address));
            EXPECT_NE(nullptr, transferRecord(address).pTransfer);
        }
    }
}

TEST_F(OpenClose, LogsAnOpen) {
    auto& entry = listTool();
    const auto lines = debugLinesOf([&] { LibUSB_OpenDevice(&entry); });
    EXPECT_THAT(lines,
                ElementsAre("[LibUSB_OpenDevice] tool ref_count: 1, pDev: " + pointerText(entry.pDevice),
                            openLine(entry)));
}

TEST_F(OpenClose, RefusesARecordThatIsOpen) {
    openTool();
    libusb_device_handle* handle = tool().hDevice;
    const auto records = tool().callbackInfos;
    tool().isPresent = 0;
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-105, LibUSB_OpenDevice(&tool())); });
    EXPECT_THAT(lines, ElementsAre("[LibUSB_OpenDevice] tool acquired == 1, pDev: 0x1"))
        << "the reference count stands in the place of the pointer";
    EXPECT_EQ(handle, tool().hDevice);
    EXPECT_EQ(records, tool().callbackInfos);
}

TEST_F(OpenClose, RefusesARecordWhoseDeviceHasGone) {
    auto& entry = listTool();
    entry.isUnsupportedClass = 1;
    entry.isPresent = 0;
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-131, LibUSB_OpenDevice(&entry)); });
    EXPECT_THAT(lines, ElementsAre("[LibUSB_OpenDevice] tool bus.state == 0, pDev: 0x1"));
    EXPECT_EQ(0U, callsOf("libusb_open"));
}

TEST_F(OpenClose, RefusesAClassThatIsNotDrivenWithoutAWord) {
    auto& entry = listTool();
    entry.isUnsupportedClass = 1;
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-158, LibUSB_OpenDevice(&entry)); });
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(0U, callsOf("libusb_open"));
}

TEST_F(OpenClose, TellsWhenLibusbCannotOpen) {
    auto& entry = listTool();
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    EXPECT_EQ(-107, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(LIBUSB_ERROR_ACCESS, entry.lastResult);
    EXPECT_EQ(0U, callsOf("libusb_close"));
    expectClosed(entry);
    expectOpensAfterAll(entry);
}

TEST_F(OpenClose, LeavesADeviceInConfigurationOneAsItIs) {
    listTool();
    ASSERT_EQ(0, LibUSB_OpenDevice(&record(0, 0)));
    EXPECT_EQ(1U, callsOf("libusb_get_configuration"));
    EXPECT_EQ(0U, callsOf("libusb_set_configuration"));
}

TEST_F(OpenClose, SelectsConfigurationOne) {
    auto& entry = listTool(kTwoConfigurations);
    EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(1U, callsOf("libusb_set_configuration"));
    uint8_t bytes[4] = {};
    EXPECT_EQ(4, LibUSB_ReadBulkPipe(&entry, 0x83, 4, 1000, bytes)) << "an endpoint of configuration 1";
}

TEST_F(OpenClose, DoesNotReconfigureWhatCannotBeRead) {
    auto& entry = listTool(kTwoConfigurations);
    bus.failCall("libusb_get_configuration", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(0U, callsOf("libusb_set_configuration"));
}

TEST_F(OpenClose, TellsWhenConfigurationOneIsRefused) {
    auto& entry = listTool(kTwoConfigurations);
    bus.failCall("libusb_set_configuration", 1, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(-130, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(LIBUSB_ERROR_PIPE, entry.lastResult);
    EXPECT_EQ(1U, callsOf("libusb_close"));
    EXPECT_EQ(0U, callsOf("libusb_claim_interface"));
    expectClosed(entry);
    expectOpensAfterAll(entry);
}

TEST_F(OpenClose, TellsWhenTheInterfaceIsTaken) {
    auto& entry = listTool();
    bus.failCall("libusb_claim_interface", 1, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(-108, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, entry.lastResult);
    EXPECT_EQ(1U, callsOf("libusb_close"));
    EXPECT_EQ(0U, callsOf("libusb_alloc_transfer"));
    expectClosed(entry);
    expectOpensAfterAll(entry);
}

TEST_F(OpenClose, TellsWhenLibusbSaysNoToADeviceOfTheBus) {
    auto& entry = listTool(R"({"hostFailures":{"claim":-6}})");
    EXPECT_EQ(-108, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, entry.lastResult);
}

TEST_F(OpenClose, AFailedOpenIsLoggedAsItBeganAndNoCloseIs) {
    auto& entry = listTool(kTwoConfigurations);
    const std::pair<const char*, int32_t> failures[] = {
        {"libusb_open", -107}, {"libusb_set_configuration", -130}, {"libusb_claim_interface", -108}};
    for (const auto& [function, result] : failures) {
        bus.failCall(function, 1, LIBUSB_ERROR_IO);
        const auto lines =
            debugLinesOf([&, expected = result] { EXPECT_EQ(expected, LibUSB_OpenDevice(&entry)); });
        EXPECT_THAT(lines,
                    ElementsAre("[LibUSB_OpenDevice] tool ref_count: 1, pDev: " + pointerText(entry.pDevice),
                                openLine(entry)));
    }
}

TEST_F(OpenClose, ARefusedOpenLeavesTheKernelDriversFlag) {
    auto& entry = listTool();
    entry.kernelDriverDetached = 1;
    const auto refused = [&](uint32_t& field, uint32_t value, int32_t result) {
        const uint32_t before = std::exchange(field, value);
        EXPECT_EQ(result, LibUSB_OpenDevice(&entry));
        EXPECT_EQ(1U, entry.kernelDriverDetached);
        field = before;
    };
    refused(entry.isOpen, 1, -105);
    refused(entry.isPresent, 0, -131);
    refused(entry.isUnsupportedClass, 1, -158);
}

TEST_F(OpenClose, AnInterfaceIsClaimedAndReleasedButTheKernelDriverIsInterfaceZeros) {
    auto& child = *listTool(kComposite).pCompositeChild;
    const CallArguments arguments;
    ASSERT_EQ(0, LibUSB_OpenDevice(&child));
    child.kernelDriverDetached = 1;
    bus.failCall("libusb_attach_kernel_driver", 1, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(0, LibUSB_CloseDevice(&child));
    EXPECT_THAT(CallArguments::of("libusb_claim_interface"), ElementsAre(ElementsAre(1)));
    EXPECT_THAT(CallArguments::of("libusb_release_interface"), ElementsAre(ElementsAre(1)));
    EXPECT_THAT(CallArguments::of("libusb_kernel_driver_active"), ElementsAre(ElementsAre(0)));
    EXPECT_THAT(CallArguments::of("libusb_attach_kernel_driver"),
                ElementsAre(ElementsAre(0), ElementsAre(0)));
}

TEST_F(OpenClose, ARefusedReleaseIsLoggedWithTheRecordsInterface) {
    auto& child = *listTool(kComposite).pCompositeChild;
    ASSERT_EQ(0, LibUSB_OpenDevice(&child));
    bus.failCall("libusb_release_interface", 1, LIBUSB_ERROR_NOT_FOUND);
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&child)); });
    EXPECT_EQ("Failed to release endpoint 1: -5", lines.at(1));
}

TEST_F(OpenClose, TransfersAreFreedBehindTheHandle) {
    openTool();
    const CallOrder order(bus, {"libusb_close", "libusb_free_transfer"});
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    ASSERT_EQ(33U, order.seen().size());
    EXPECT_EQ("libusb_close", order.seen().front());
}

TEST_F(OpenClose, AnAttachComesBeforeTheCloseIsLogged) {
    openTool();
    tool().kernelDriverDetached = 1;
    bus.onCall("libusb_attach_kernel_driver", [] { debug_log("attach"); });
    // The device had no driver to attach, so the library tries once more.
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); });
    EXPECT_THAT(
        lines,
        ElementsAre("attach", "[LibUSB_CloseDevice] tool ref_count: 1, pDev: " + pointerText(tool().pDevice),
                    "attach", closeLine(tool())));
}

TEST_F(OpenClose, ClosesWhatItOpened) {
    openTool();
    bus.clearCalls();
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    expectClosed(tool());
    EXPECT_EQ(1U, callsOf("libusb_release_interface"));
    EXPECT_EQ(1U, callsOf("libusb_close"));
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
    EXPECT_EQ(0U, callsOf("libusb_attach_kernel_driver"));
    uint8_t byte = 0;
    const auto lines =
        debugLinesOf([&] { EXPECT_EQ(-109, LibUSB_ReadBulkPipe(&tool(), 0x83, 1, 1000, &byte)); });
    EXPECT_THAT(lines, ElementsAre("[checkBulkTransferReady] not acquired"));
}

TEST_F(OpenClose, LogsAClose) {
    openTool();
    const auto lines = debugLinesOf([&] { LibUSB_CloseDevice(&tool()); });
    EXPECT_THAT(lines,
                ElementsAre("[LibUSB_CloseDevice] tool ref_count: 1, pDev: " + pointerText(tool().pDevice),
                            closeLine(tool())));
}

TEST_F(OpenClose, RefusesToCloseAClosedRecord) {
    auto& entry = listTool();
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-109, LibUSB_CloseDevice(&entry)); });
    EXPECT_THAT(lines, IsEmpty());
    openTool();
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&tool()));
}

TEST_F(OpenClose, CloseSwallowsAFailedInterfaceRelease) {
    openTool();
    bus.failCall("libusb_release_interface", 1, LIBUSB_ERROR_NOT_FOUND);
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); });
    EXPECT_THAT(lines,
                ElementsAre("[LibUSB_CloseDevice] tool ref_count: 1, pDev: " + pointerText(tool().pDevice),
                            "Failed to release endpoint 0: -5", closeLine(tool())));
    expectClosed(tool());
}

TEST_F(OpenClose, ClosesADeviceThatHasGone) {
    openTool();
    const libusb_device* device = tool().pDevice;
    unplugAndWait("tool", list());
    ASSERT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); });
    EXPECT_EQ("[LibUSB_CloseDevice] tool ref_count: -1, pDev: " + pointerText(device), lines.front());
    expectClosed(tool());
    EXPECT_EQ(-131, LibUSB_OpenDevice(&tool()));
}

TEST_F(OpenClose, CloseAttachesADetachedKernelDriverOnce) {
    openTool();
    tool().kernelDriverDetached = 1;
    const CallOrder order(bus, {"libusb_attach_kernel_driver", "libusb_release_interface"});
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(0U, tool().kernelDriverDetached);
    EXPECT_EQ("libusb_attach_kernel_driver", order.seen().front());
}

TEST_F(OpenClose, CloseTriesAFailedAttachOnceMoreBehindTheRelease) {
    openTool();
    tool().kernelDriverDetached = 1;
    bus.failCall("libusb_attach_kernel_driver", 1, LIBUSB_ERROR_BUSY, 2);
    const CallOrder order(bus, {"libusb_attach_kernel_driver", "libusb_release_interface", "libusb_close"});
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_THAT(order.seen(), ElementsAre("libusb_attach_kernel_driver", "libusb_release_interface",
                                          "libusb_attach_kernel_driver", "libusb_close"));
}

TEST_F(OpenClose, OpensAndClosesAgainAndAgain) {
    auto& entry = listTool();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(0, LibUSB_OpenDevice(&entry));
        ASSERT_EQ(0, LibUSB_CloseDevice(&entry));
    }
    EXPECT_EQ(callsOf("libusb_alloc_transfer"), callsOf("libusb_free_transfer"));
    EXPECT_EQ(callsOf("libusb_open"), callsOf("libusb_close"));
    EXPECT_EQ(1, getRefCount(entry.pDevice)) << "opening only reads the reference count";
}

TEST_F(OpenClose, ACompositeDeviceAndItsInterfaceAreOpenedEachOnItsOwn) {
    auto& parent = listTool(kComposite);
    ASSERT_NE(nullptr, parent.pCompositeChild);
    auto& child = *parent.pCompositeChild;
    EXPECT_EQ(0, LibUSB_OpenDevice(&parent));
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_OpenDevice(&child)); });
    EXPECT_EQ("[tlvn_libusb_open] tool_01: 1.256 interface: 1 dev: " + pointerText(child.pDevice),
              lines.back());
    EXPECT_EQ(parent.pDevice, child.pDevice);
    EXPECT_NE(parent.hDevice, child.hDevice);
    EXPECT_EQ(2U, callsOf("libusb_claim_interface"));
    uint8_t bytes[8] = {};
    EXPECT_EQ(8, LibUSB_ReadBulkPipe(&parent, 0x83, 8, 1000, bytes));
    EXPECT_EQ(8, LibUSB_ReadBulkPipe(&child, 0x84, 8, 1000, bytes));
    EXPECT_EQ(0, LibUSB_CloseDevice(&parent));
    EXPECT_EQ(8, LibUSB_WriteBulkPipe(&child, 0x04, 8, 1000, bytes));
    EXPECT_EQ(0, LibUSB_CloseDevice(&child));
}
