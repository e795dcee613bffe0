#include <gmock/gmock.h>
#include <libusb.h>

#include "DescriptorBytes.h"
#include "FakeHid.h"
#include "HidHandling/HidDetection.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "hid/HIDAccess.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr int32_t kProduct = 0x1001;
constexpr uint8_t kInterrupt = 3;

HidDeviceInfo hidDevice(const std::string& serial, int32_t vendorId = kVendor, int32_t productId = kProduct) {
    return {vendorId, productId, "Talvane", "Echo Tool", serial};
}

class HidDetection : public ListTest {
 protected:
    HidDetection() { hid.configuration = kHidConfiguration; }

    /// A list of kVendor with these devices on the bus.
    uint32_t listOfDevices(std::initializer_list<std::string> devices) {
        startSession(devices);
        return createList({kVendor, kSecondVendor});
    }
    uint32_t listOfTool(const std::string& overrides = "{}") {
        return listOfDevices({deviceJson("tool", overrides)});
    }
    static std::vector<int32_t> marksOf(uint32_t list) {
        std::vector<int32_t> marks;
        for (const auto* entry : recordsOf(list)) {
            marks.push_back(entry->isHid);
        }
        return marks;
    }
    static int32_t endpointsInUse(const tagUSB_DEVICE_ACCESS_ENTRY& entry) { return entry.endpointCount; }

    const DescriptorBytes kHidConfiguration = configurationBytes({interfaceBytes(0, 3, 0),
                                                                  {9, 0x21, 0x11, 1, 0, 1, 0x22, 28, 0},
                                                                  endpointBytes(0x81, kInterrupt),
                                                                  endpointBytes(0x01, kInterrupt)});
    FakeHid hid;
};

TEST_F(HidDetection, ADeviceIsMarkedByItsIdsAndSerialNumber) {
    hid.devices = {hidDevice("tool")};
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(1, entry.isHid);
    EXPECT_EQ(64U, entry.packetSize);
    EXPECT_EQ(64U, entry.exPacketSize);
    EXPECT_EQ(0x5AU, entry.fillValue);
    EXPECT_EQ(0U, entry.exFillValue);
}

TEST_F(HidDetection, LooksForHidDevicesOnceLibusbHasItsArrayBack) {
    startSession({deviceJson("tool")});
    uint64_t arraysOut = 0;
    int looks = 0;
    hid.onList = [&] {
        ++looks;
        arraysOut += callsOf("libusb_get_device_list") - callsOf("libusb_free_device_list");
    };
    const uint32_t list = createList({kVendor});
    createSingleCallList(0xFFFFFFFF);
    listOf(list).changePending = true;
    update(list);
    EXPECT_EQ(3, looks);
    EXPECT_EQ(0U, arraysOut);
}

TEST_F(HidDetection, AMarkedDeviceGetsAClosedHidAccess) {
    hid.devices = {hidDevice("tool")};
    const auto& entry = record(listOfTool(), 0);
    ASSERT_NE(nullptr, entry.pHIDAccess);
    EXPECT_EQ(kVendor, entry.pHIDAccess->idVendor);
    EXPECT_EQ(kProduct, entry.pHIDAccess->idProduct);
    EXPECT_STREQ("tool", entry.pHIDAccess->sSerialNumber);
    EXPECT_EQ(nullptr, entry.pHIDAccess->ppDeviceInterface);
    EXPECT_EQ(64, entry.pHIDAccess->packetSize);
    EXPECT_EQ(0x5A, entry.pHIDAccess->fillValue);
    EXPECT_EQ(kNoReadThread, entry.pHIDAccess->threadState);
    EXPECT_THAT(hid.calls(), IsEmpty());
}

TEST_F(HidDetection, OtherIdsOrAnotherSerialNumberMarkNothing) {
    hid.devices = {hidDevice("TOOL"), hidDevice("tool2"), hidDevice("too"), hidDevice("tool", 0x1209),
                   hidDevice("tool", kVendor, 0x1002)};
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(0, entry.isHid);
    EXPECT_EQ(nullptr, entry.pHIDAccess);
    EXPECT_EQ(512U, entry.packetSize);
}

TEST_F(HidDetection, ADeviceWithoutSerialNumberIsNeverMarked) {
    HidDeviceInfo nameless = hidDevice("");
    nameless.serialNumber.reset();
    hid.devices = {nameless};
    const uint32_t list = listOfDevices({deviceJson("tool"), deviceJson("other", R"({"serial":null})")});
    EXPECT_THAT(marksOf(list), Each(0));
}

TEST_F(HidDetection, ARecordWithoutSerialNumberIsMarkedByALiteralQuestionMark) {
    hid.devices = {hidDevice("?")};
    const auto& entry = record(listOfTool(R"({"serial":null})"), 0);
    EXPECT_STREQ("?", entry.sSerialNumber);
    EXPECT_EQ(1, entry.isHid);
    EXPECT_STREQ("?", entry.pHIDAccess->sSerialNumber);
}

TEST_F(HidDetection, AnIdThatCannotBeReadMarksNothing) {
    HidDeviceInfo noVendor = hidDevice("tool");
    noVendor.vendorId.reset();
    HidDeviceInfo noProduct = hidDevice("tool");
    noProduct.productId.reset();
    hid.devices = {noVendor, noProduct};
    EXPECT_THAT(marksOf(listOfTool()), Each(0));
}

TEST_F(HidDetection, IdsFrom0x8000OnAreNeverMarked) {
    hid.devices = {hidDevice("tool", kVendor, 0x8000), hidDevice("tool", 0xFFFF, kProduct)};
    startSession({deviceJson("tool", R"({"productId":"0x8000"})"),
                  deviceJson("high", R"({"serial":"tool","vendorId":"0xFFFF"})")});
    EXPECT_THAT(marksOf(createList({kVendor, 0xFFFF})), ElementsAre(0, 0));
}

TEST_F(HidDetection, TheLargestAndTheSmallestReadableIdAreMarked) {
    hid.devices = {hidDevice("large", kVendor, 0x7FFF), hidDevice("small", kVendor, 0)};
    EXPECT_THAT(marksOf(listOfDevices({deviceJson("large", R"({"productId":"0x7FFF"})"),
                                       deviceJson("small", R"({"productId":0})")})),
                ElementsAre(1, 1));
}

TEST_F(HidDetection, TwoServicesAlikeMarkTwoRecordsAlikeInListOrder) {
    hid.devices = {hidDevice("twin")};
    const std::string twin = R"({"serial":"twin"})";
    const uint32_t list = listOfDevices({deviceJson("a", twin), deviceJson("b", twin)});
    EXPECT_THAT(marksOf(list), ElementsAre(1, 0));
    // Each device marks the first unmarked record: one more service, one more record.
    EXPECT_EQ(1, HID_MarkHidDevicesInList(&listOf(list)));
    EXPECT_THAT(marksOf(list), ElementsAre(1, 1));
    EXPECT_EQ(1, HID_MarkHidDevicesInList(&listOf(list)));
    EXPECT_NE(record(list, 0).pHIDAccess, record(list, 1).pHIDAccess);
}

TEST_F(HidDetection, AServiceThatIsSkippedDoesNotEndTheSearch) {
    HidDeviceInfo nameless = hidDevice("");
    nameless.serialNumber.reset();
    hid.devices = {nameless, hidDevice("stranger", 0x1209), hidDevice("tool")};
    EXPECT_THAT(marksOf(listOfTool()), ElementsAre(1));
}

TEST_F(HidDetection, AnswersZeroOnlyWhenThePlatformCannotBeAsked) {
    const uint32_t list = listOfTool();
    EXPECT_EQ(1, HID_MarkHidDevicesInList(&listOf(list)));
    hid.devices = {hidDevice("tool")};
    hid.lists = false;
    EXPECT_EQ(0, HID_MarkHidDevicesInList(&listOf(list)));
    EXPECT_THAT(marksOf(list), Each(0));
}

TEST_F(HidDetection, ARecordKeepsItsHidAccessWithItsSettings) {
    hid.devices = {hidDevice("tool")};
    const uint32_t list = listOfTool();
    auto& entry = record(list, 0);
    HIDAccess* access = entry.pHIDAccess;
    access->SetPacketSize(128);
    access->SetFillValue(7);
    entry.isHid = 0;
    entry.packetSize = entry.exPacketSize = entry.fillValue = 1;
    HID_MarkHidDevicesInList(&listOf(list));
    EXPECT_EQ(access, entry.pHIDAccess);
    EXPECT_EQ(128, access->packetSize);
    EXPECT_EQ(7, access->fillValue);
    EXPECT_EQ(64U, entry.packetSize);
    EXPECT_EQ(64U, entry.exPacketSize);
    EXPECT_EQ(0x5AU, entry.fillValue);
}

TEST_F(HidDetection, TheConfigurationAndEndpointsAreThoseOfTheHidDevice) {
    hid.devices = {hidDevice("tool")};
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ("6A5C:1001 512", hid.asked());
    EXPECT_EQ(hexOf(kHidConfiguration), hexOf(configurationOf(entry)));
    EXPECT_EQ(2, entry.endpointCount);
    const auto endpoints = endpointsOf(entry.endpoints);
    EXPECT_EQ((Endpoint{0x81, 1, 3, 64}), endpoints[0]);
    EXPECT_EQ((Endpoint{0x01, 0, 3, 64}), endpoints[1]);
    EXPECT_EQ(kUnusedEndpoint, endpoints[2]);
}

TEST_F(HidDetection, BytesBehindTheConfigurationAreZero) {
    hid.devices = {hidDevice("tool")};
    hid.configuration = configurationBytes({interfaceBytes(0, 3, 0)});
    const auto& entry = record(listOfTool(), 0);
    for (int32_t i = entry.configDescriptorLength; i < kConfigDescriptorBytes; ++i) {
        ASSERT_EQ(0, entry.configDescriptor[i]) << i;
    }
}

TEST_F(HidDetection, AConfigurationThatCannotBeReadLeavesAMarkedRecordWithoutAny) {
    hid.devices = {hidDevice("tool")};
    hid.configuration.clear();
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(1, entry.isHid);
    EXPECT_EQ(0, entry.configDescriptorLength);
    EXPECT_THAT(entry.configDescriptor, Each(0));
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_THAT(endpointsOf(entry.endpoints), Each(kUnusedEndpoint));
}

TEST_F(HidDetection, AConfigurationOfNoBytesLeavesTheEndpointsAsTheyWere) {
    hid.devices = {hidDevice("tool")};
    hid.configuration.clear();
    hid.configurationFailure = 0;
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(0, entry.configDescriptorLength);
    EXPECT_EQ(10, entry.endpointCount);
}

TEST_F(HidDetection, AConfigurationWithoutInterfaceLeavesTheEndpointsAsTheyWere) {
    hid.devices = {hidDevice("tool")};
    hid.configuration = configurationBytes({});
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(9, entry.configDescriptorLength);
    EXPECT_EQ(10, entry.endpointCount);  // as read through libusb
    EXPECT_EQ(0x01, entry.endpoints[0].address);
}

TEST_F(HidDetection, AZeroLengthBeforeTheFirstInterfaceClearsBoth) {
    hid.devices = {hidDevice("tool")};
    hid.configuration = configurationBytes({{0, 0}, interfaceBytes(0, 3, 0)});
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(0, entry.configDescriptorLength);
    EXPECT_THAT(entry.configDescriptor, Each(0));
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_THAT(endpointsOf(entry.endpoints), Each(kUnusedEndpoint));
}

TEST_F(HidDetection, AZeroLengthBehindTheFirstInterfaceOnlyEndsTheEndpoints) {
    hid.devices = {hidDevice("tool")};
    hid.configuration = configurationBytes({interfaceBytes(0, 3, 0), endpointBytes(0x81), {0, 5}});
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(27, entry.configDescriptorLength);
    EXPECT_EQ(1, entry.endpointCount);
}

TEST_F(HidDetection, AnInterfaceCutByTheBuffersEndIsNotReadBeyondIt) {
    hid.devices = {hidDevice("tool")};
    DescriptorBytes configuration = configurationBytes({});
    while (configuration.size() + 255 <= 510) {
        configuration.push_back(251);
        configuration.resize(configuration.size() + 250, 0xFF);
    }
    configuration.push_back(static_cast<uint8_t>(510 - configuration.size()));
    configuration.resize(510, 0xFF);
    configuration.insert(configuration.end(), {9, 4, 0, 0, 2, 3, 0, 0, 0, 7, 5, 0x81, 3, 64, 0, 1});
    hid.configuration = configuration;
    const auto& entry = record(listOfTool(), 0);
    EXPECT_EQ(512, entry.configDescriptorLength);
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_EQ(0U, entry.isUnsupportedClass);
}

struct ClassRule {
    uint8_t deviceClass;
    uint8_t interfaceClass;
    uint32_t unsupported;
};

class HidInterfaceClass : public HidDetection, public ::testing::WithParamInterface<ClassRule> {};

TEST_P(HidInterfaceClass, DecidesWhetherTheDeviceIsDriven) {
    hid.devices = {hidDevice("tool")};
    hid.configuration = configurationBytes({interfaceBytes(0, GetParam().interfaceClass)});
    const auto& entry =
        record(listOfTool(R"({"deviceClass":)" + std::to_string(int{GetParam().deviceClass}) + "}"), 0);
    EXPECT_EQ(1, entry.isHid);
    EXPECT_EQ(GetParam().unsupported, entry.isUnsupportedClass);
}

INSTANTIATE_TEST_SUITE_P(All, HidInterfaceClass,
                         ::testing::Values(ClassRule{0x00, 0x03, 0}, ClassRule{0x00, 0x00, 0},
                                           ClassRule{0x00, 0xEF, 0}, ClassRule{0x00, 0xFE, 0},
                                           ClassRule{0x00, 0xFF, 0}, ClassRule{0x00, 0x08, 1},
                                           ClassRule{0xEF, 0x08, 1}, ClassRule{0xEF, 0x03, 0},
                                           ClassRule{0xFF, 0x08, 0}, ClassRule{0x03, 0x08, 0}));

TEST_F(HidDetection, AnUnsupportedClassIsNeverTakenBack) {
    hid.devices = {hidDevice("tool")};
    const auto& entry = record(listOfTool(rawConfiguration(configurationBytes({interfaceBytes(0, 8)}))), 0);
    EXPECT_EQ(1, entry.isHid);
    EXPECT_EQ(1U, entry.isUnsupportedClass);
}

TEST_F(HidDetection, ComesBeforeTheSplitAndNeverMarksAChild) {
    hid.devices = {hidDevice("tool", kSecondVendor), hidDevice("tool_01", kSecondVendor)};
    hid.configuration = configurationBytes({interfaceBytes(0, 3, 0), endpointBytes(0x81, kInterrupt),
                                            interfaceBytes(1), endpointBytes(0x82), endpointBytes(0x02)});
    const uint32_t list = listOfTool(R"({"vendorId":"0x6A5D"})");
    const auto records = recordsOf(list);
    ASSERT_THAT(records, SizeIs(2)) << "split by the configuration that the HID device gives";
    EXPECT_STREQ("tool_01", records[1]->sSerialNumber);
    EXPECT_THAT(marksOf(list), ElementsAre(1, 0));
    EXPECT_EQ(nullptr, records[1]->pHIDAccess);
}

TEST_F(HidDetection, SingleCallListsAreMarkedToo) {
    hid.devices = {hidDevice("tool")};
    startSession({deviceJson("tool")});
    EXPECT_THAT(marksOf(createSingleCallList(kVendor)), ElementsAre(1));
    EXPECT_THAT(marksOf(createSingleCallList(0xFFFFFFFF)), ElementsAre(1));
}

TEST_F(HidDetection, AnUpdateMarksADeviceThatItAdds) {
    const uint32_t list = listOfTool();
    hid.devices = {hidDevice("late")};
    addDevice(deviceJson("late", R"({"plugged":false})"));
    plugAndUpdate("late", list);
    EXPECT_EQ(1, recordNamed(list, "late").isHid);
    EXPECT_EQ(0, recordNamed(list, "tool").isHid);
}

TEST_F(HidDetection, AnUpdateKeepsARecordsOwnHidAccess) {
    hid.devices = {hidDevice("tool")};
    const uint32_t list = listOfTool();
    HIDAccess* access = record(list, 0).pHIDAccess;
    unplugAndUpdate("tool", list);
    plugAndUpdate("tool", list);
    EXPECT_EQ(access, record(list, 0).pHIDAccess);
    EXPECT_EQ(1, record(list, 0).isHid);
}

TEST_F(HidDetection, WithoutDevicesThePlatformIsNotAsked) {
    hid.onList = [] { ADD_FAILURE() << "asked"; };
    startSession({});
    EXPECT_TRUE(recordsOf(createList({kVendor})).empty());
}

TEST_F(HidDetection, TheUsbContextIsKnownWhileTheListIsMarkedOnly) {
    EXPECT_EQ(nullptr, hidUsbContext());
    hid.devices = {hidDevice("tool")};
    hid.onReadConfigDescriptor = [this] { EXPECT_EQ(context, hidUsbContext()); };
    listOfTool();
    EXPECT_EQ(nullptr, hidUsbContext());
}

}  // namespace
