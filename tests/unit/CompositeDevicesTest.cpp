#include <gmock/gmock.h>
#include <libusb.h>

#include <cstring>

#include "DescriptorBytes.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/lists/CompositeDevices.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr uint8_t kBulk = 2;
constexpr uint8_t kInterrupt = 3;

DescriptorBytes vendorInterface(uint8_t number, uint8_t stringIndex) {
    DescriptorBytes bytes = interfaceBytes(number);
    bytes[8] = stringIndex;
    return bytes;
}

class CompositeDevices : public ListTest {
 protected:
    /// A list of one device of the maker with this configuration and a string "Trace Port" of index 9.
    uint32_t listWith(const DescriptorBytes& configuration, const std::string& overrides = "{}") {
        startSession({deviceJson("tool", merged({R"({"strings":{"9":"Trace Port"}})",
                                                 rawConfiguration(configuration), overrides}))});
        return createList({kVendor, kSecondVendor});
    }
    uint32_t listWithStandardTool(const std::string& overrides = "{}") {
        return listWith(kStandardTool, overrides);
    }
    static tagUSB_DEVICE_ACCESS_ENTRY& childOf(uint32_t list) { return *recordsOf(list).at(1); }

    const DescriptorBytes kSlice = joined({vendorInterface(1, 9), endpointBytes(0x84, kInterrupt, 16),
                                           endpointBytes(0x85, kBulk, 512), endpointBytes(0x05, kBulk, 512)});
    const DescriptorBytes kStandardTool =
        configurationBytes({interfaceBytes(0, 3, 0), endpointBytes(0x81, kInterrupt), kSlice});
};

TEST_F(CompositeDevices, AVendorInterfaceWithABulkPairIsSplitOff) {
    const uint32_t list = listWithStandardTool();
    const auto records = recordsOf(list);
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(kCompositeParent, records[0]->familyStatus);
    EXPECT_EQ(records[1], records[0]->pCompositeChild);
    EXPECT_EQ(nullptr, records[0]->pCompositeParent);
    EXPECT_EQ(0, records[0]->interfaceNumber);
    EXPECT_EQ(kCompositeChild, records[1]->familyStatus);
    EXPECT_EQ(records[0], records[1]->pCompositeParent);
    EXPECT_EQ(nullptr, records[1]->pCompositeChild);
    EXPECT_EQ(1, records[1]->interfaceNumber);
}

TEST_F(CompositeDevices, AChildIsNamedAfterParentAndInterface) {
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(listWithStandardTool());
    EXPECT_STREQ("tool_01", child.sSerialNumber);
    EXPECT_STREQ("Talvane", child.sManufacturer);
    EXPECT_STREQ("Trace Port", child.sProduct);
    EXPECT_EQ(0x6A5CU, child.idVendor);
    EXPECT_EQ(0x1001U, child.idProduct);
    EXPECT_EQ(0x0100U, child.bcdDevice);
}

TEST_F(CompositeDevices, AChildHasItsParentsDeviceAndDeviceDescriptor) {
    const uint32_t list = listWithStandardTool(R"({"bus":4})");
    const tagUSB_DEVICE_ACCESS_ENTRY& parent = record(list, 0);
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(list);
    EXPECT_EQ(parent.pDevice, child.pDevice);
    EXPECT_EQ(1, getRefCount(child.pDevice));
    EXPECT_EQ(4, child.busNumber);
    EXPECT_EQ(18, child.deviceDescriptorLength);
    EXPECT_EQ(0,
              std::memcmp(parent.deviceDescriptor, child.deviceDescriptor, sizeof parent.deviceDescriptor));
}

TEST_F(CompositeDevices, AChildHasTheStandingValuesOfARecord) {
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(listWithStandardTool());
    EXPECT_EQ(0U, child.isOpen);
    EXPECT_EQ(nullptr, child.hDevice);
    EXPECT_EQ(nullptr, child.pHIDAccess);
    EXPECT_EQ(0, child.isHid);
    EXPECT_EQ(0U, child.isUnsupportedClass);
    EXPECT_EQ(0, child.lastResult);
    EXPECT_EQ(0U, child.reserved);
    EXPECT_EQ(512U, child.packetSize);
    EXPECT_EQ(512U, child.exPacketSize);
    EXPECT_EQ(0U, child.fillValue);
    EXPECT_EQ(0U, child.exFillValue);
    EXPECT_EQ(1U, child.initFlag);
    EXPECT_EQ(1U, child.changeReported);
    EXPECT_EQ(1U, child.isPresent);
    EXPECT_EQ(1U, child.reportedPresent);
    EXPECT_TRUE(child.callbackInfos.empty());
}

TEST_F(CompositeDevices, AChildHasTheSliceAndEndpointsOfItsInterface) {
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(
        listWith(configurationBytes({interfaceBytes(0), kSlice, interfaceBytes(2), endpointBytes(0x06)})));
    EXPECT_EQ(kSlice, configurationOf(child));
    EXPECT_THAT(std::vector<uint8_t>(std::begin(child.configDescriptor) + child.configDescriptorLength,
                                     std::end(child.configDescriptor)),
                Each(0));
    EXPECT_EQ(3, child.endpointCount);
    const std::vector<Endpoint> endpoints = endpointsOf(child.endpoints);
    EXPECT_EQ((Endpoint{0x84, 1, 3, 16}), endpoints[0]);
    EXPECT_EQ((Endpoint{0x85, 1, 2, 512}), endpoints[1]);
    EXPECT_EQ((Endpoint{0x05, 0, 2, 512}), endpoints[2]);
    EXPECT_EQ(kUnusedEndpoint, endpoints[3]);
}

TEST_F(CompositeDevices, AParentKeepsItsConfigurationAndEndpoints) {
    const tagUSB_DEVICE_ACCESS_ENTRY& parent = record(listWithStandardTool(), 0);
    EXPECT_EQ(kStandardTool, configurationOf(parent));
    EXPECT_EQ(1, parent.endpointCount);
    EXPECT_STREQ("tool", parent.sSerialNumber);
}

TEST_F(CompositeDevices, BothVendorIdsOfTheMakerAreSplit) {
    EXPECT_THAT(recordsOf(listWithStandardTool(R"({"vendorId":"0x6A5D"})")), SizeIs(2));
}

/// The vendor ids adjacent to the maker's two, and a distant one.
class OtherVendors : public CompositeDevices, public ::testing::WithParamInterface<int32_t> {};

TEST_P(OtherVendors, AreNeverSplit) {
    const int32_t vendor = GetParam();
    startSession({deviceJson("tool", merged({rawConfiguration(kStandardTool),
                                             R"({"vendorId":)" + std::to_string(vendor) + "}"}))});
    const uint32_t list = createList({vendor});
    EXPECT_THAT(serialsOf(list), ElementsAre("tool"));
    EXPECT_EQ(kPlainDevice, record(list, 0).familyStatus);
}

INSTANTIATE_TEST_SUITE_P(CompositeDevices, OtherVendors, ::testing::Values(0x6A5B, 0x6A5E, 0x1234));

TEST_F(CompositeDevices, TheFirstInterfaceNeverQualifies) {
    const uint32_t list =
        listWith(configurationBytes({interfaceBytes(0), endpointBytes(0x81), endpointBytes(0x01)}));
    EXPECT_THAT(recordsOf(list), SizeIs(1));
    EXPECT_EQ(kPlainDevice, record(list, 0).familyStatus);
}

TEST_F(CompositeDevices, ClassAndSubclassMustBothBeVendorSpecific) {
    const uint32_t list = listWith(configurationBytes(
        {interfaceBytes(0), interfaceBytes(1, 0xFF, 0), endpointBytes(0x81), endpointBytes(0x01),
         interfaceBytes(2, 3, 0xFF), endpointBytes(0x82), endpointBytes(0x02)}));
    EXPECT_THAT(recordsOf(list), SizeIs(1));
}

TEST_F(CompositeDevices, OneBulkEndpointIsNotEnough) {
    EXPECT_THAT(recordsOf(listWith(configurationBytes(
                    {interfaceBytes(0), endpointBytes(0x81), interfaceBytes(1), endpointBytes(0x82)}))),
                SizeIs(1));
}

TEST_F(CompositeDevices, BulkEndpointsOfLaterInterfacesCount) {
    const uint32_t list =
        listWith(configurationBytes({interfaceBytes(0), interfaceBytes(1), endpointBytes(0x82),
                                     interfaceBytes(2, 3, 0), endpointBytes(0x02)}));
    ASSERT_THAT(recordsOf(list), SizeIs(2));
    EXPECT_EQ(1, childOf(list).endpointCount);
    EXPECT_EQ(joined({interfaceBytes(1), endpointBytes(0x82)}), configurationOf(childOf(list)));
}

TEST_F(CompositeDevices, OnlyAttributesOfExactlyTwoAreBulk) {
    EXPECT_THAT(
        recordsOf(listWith(configurationBytes({interfaceBytes(0), interfaceBytes(1), endpointBytes(0x82),
                                               endpointBytes(0x02, 0x12), endpointBytes(0x03, kInterrupt)}))),
        SizeIs(1));
}

TEST_F(CompositeDevices, OneDeviceIsSplitOnce) {
    const uint32_t list = listWith(
        configurationBytes({interfaceBytes(0), interfaceBytes(1), endpointBytes(0x82), endpointBytes(0x02),
                            interfaceBytes(2), endpointBytes(0x83), endpointBytes(0x03)}));
    EXPECT_THAT(serialsOf(list), ElementsAre("tool", "tool_01"));
}

TEST_F(CompositeDevices, AlternateSettingsCountAsInterfaces) {
    const uint32_t list =
        listWith(configurationBytes({interfaceBytes(0, 3), interfaceBytes(0, 3), interfaceBytes(1),
                                     endpointBytes(0x82), endpointBytes(0x02)}));
    EXPECT_STREQ("tool_02", childOf(list).sSerialNumber);
    EXPECT_EQ(2, childOf(list).interfaceNumber);
}

TEST_F(CompositeDevices, TheInterfaceCountIsShownInTwoHexadecimalDigits) {
    DescriptorBytes others;
    for (int i = 0; i < 0x1B; ++i) {
        others = joined({others, interfaceBytes(0, 3)});
    }
    const uint32_t list =
        listWith(configurationBytes({others, interfaceBytes(1), endpointBytes(0x82), endpointBytes(0x02)}));
    EXPECT_STREQ("tool_1B", childOf(list).sSerialNumber);
}

TEST_F(CompositeDevices, ALongSerialNumberIsCut) {
    const std::string serial(125, 's');
    const uint32_t list = listWithStandardTool(R"({"serial":")" + serial + R"("})");
    EXPECT_EQ(serial + "_0", std::string(childOf(list).sSerialNumber));
}

TEST_F(CompositeDevices, AnInterfaceAtTheVeryEndIsPassedOver) {
    EXPECT_THAT(recordsOf(listWith(configurationBytes({interfaceBytes(0), interfaceBytes(1)}))), SizeIs(1));
}

TEST_F(CompositeDevices, AZeroLengthInTheSliceLeavesAChildWithoutConfiguration) {
    const uint32_t list = listWith(configurationBytes(
        {interfaceBytes(0), vendorInterface(1, 9), endpointBytes(0x82), endpointBytes(0x02), {0, 0}}));
    ASSERT_THAT(recordsOf(list), SizeIs(2));
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(list);
    EXPECT_EQ(0, child.configDescriptorLength);
    EXPECT_THAT(child.configDescriptor, Each(0));
    EXPECT_EQ(0, child.endpointCount);
    EXPECT_THAT(endpointsOf(child.endpoints), Each(kUnusedEndpoint));
    EXPECT_STREQ("Echo Tool", child.sProduct);
    EXPECT_STREQ("tool_01", child.sSerialNumber);
}

TEST_F(CompositeDevices, AZeroLengthBeforeThePairEndsTheSearch) {
    EXPECT_THAT(
        recordsOf(listWith(configurationBytes(
            {interfaceBytes(0), interfaceBytes(1), endpointBytes(0x82), {0, 0}, endpointBytes(0x02)}))),
        SizeIs(1));
}

TEST_F(CompositeDevices, ADeviceThatCannotBeOpenedAgainGivesItsProductToTheChild) {
    startSession(
        {deviceJson("tool", merged({R"({"strings":{"9":"Trace Port"}})", rawConfiguration(kStandardTool)}))});
    bus.failCall("libusb_open", 2, LIBUSB_ERROR_ACCESS);
    const tagUSB_DEVICE_ACCESS_ENTRY& child = childOf(createList({kVendor}));
    EXPECT_STREQ("Echo Tool", child.sProduct);
    EXPECT_EQ(3, child.endpointCount);
}

TEST_F(CompositeDevices, AnInterfaceStringThatCannotBeReadLeavesTheParentsProduct) {
    const uint32_t list = listWith(configurationBytes(
        {interfaceBytes(0), vendorInterface(1, 200), endpointBytes(0x82), endpointBytes(0x02)}));
    EXPECT_STREQ("Echo Tool", childOf(list).sProduct);
}

TEST_F(CompositeDevices, AnInterfaceStringIsCutAt125Characters) {
    const uint32_t list = listWithStandardTool(R"({"strings":{"9":")" + std::string(126, 'i') + R"("}})");
    EXPECT_EQ(std::string(125, 'i'), childOf(list).sProduct);
}

TEST_F(CompositeDevices, OpenAndCloseForTheStringAreLoggedWithTheChild) {
    startSession({deviceJson("tool", merged({R"({"bus":4})", rawConfiguration(kStandardTool)}))});
    uint32_t list = 0;
    const std::vector<std::string> lines = debugLinesOf([&] { list = createList({kVendor}); });
    const std::string pointer = pointerText(record(list, 0).pDevice);
    EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()),
                ElementsAre("[tlvn_libusb_open] tool_01: 4.256 interface: 1 dev: " + pointer,
                            "[tlvn_libusb_close] tool_01: 4.256 interface: 1 dev: " + pointer));
}

TEST_F(CompositeDevices, ChildrenFollowAllWholeDevicesInTheOrderOfTheirParents) {
    startSession({deviceJson("a", rawConfiguration(kStandardTool)), deviceJson("plain"),
                  deviceJson("b", rawConfiguration(kStandardTool))});
    const uint32_t list = createList({kVendor});
    const auto records = recordsOf(list);
    ASSERT_THAT(records, SizeIs(5));
    std::vector<tagUSB_DEVICE_ACCESS_ENTRY*> parents;
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NE(kCompositeChild, records[i]->familyStatus);
        if (records[i]->familyStatus == kCompositeParent) {
            parents.push_back(records[i]);
        }
    }
    EXPECT_THAT(parents, ElementsAre(records[3]->pCompositeParent, records[4]->pCompositeParent));
}

TEST_F(CompositeDevices, SplittingAgainAddsNoSecondChild) {
    const uint32_t list = listWithStandardTool();
    EXPECT_EQ(77U, HandleCompositeDevices(77, &listOf(list)));
    EXPECT_THAT(recordsOf(list), SizeIs(2));
}

TEST_F(CompositeDevices, AnEmptyListHasNothingToSplit) {
    startSession({});
    const uint32_t list = createList({kVendor});
    EXPECT_EQ(list, HandleCompositeDevices(list, &listOf(list)));
    EXPECT_TRUE(recordsOf(list).empty());
}

TEST_F(CompositeDevices, ADeviceWithoutConfigurationIsNotSplit) {
    startSession({deviceJson("tool", rawConfiguration(kStandardTool))});
    bus.failCall("libusb_get_active_config_descriptor", 1, LIBUSB_ERROR_NOT_FOUND);
    EXPECT_THAT(recordsOf(createList({kVendor})), SizeIs(1));
}

TEST_F(CompositeDevices, AChildOfAClassThatIsNotDrivenIsDrivenAllTheSame) {
    const uint32_t list = listWithStandardTool(R"({"deviceClass":2})");
    EXPECT_EQ(1U, record(list, 0).isUnsupportedClass);
    EXPECT_EQ(0U, childOf(list).isUnsupportedClass);
}

TEST_F(CompositeDevices, ASliceGoesOnNineBytesBehindItsStartWhateverTheInterfaceSays) {
    DescriptorBytes longer = joined({interfaceBytes(1), {2, 4}});
    longer[0] = 11;  // the two extra bytes look like another interface
    const uint32_t list =
        listWith(configurationBytes({interfaceBytes(0), longer, endpointBytes(0x82), endpointBytes(0x02)}));
    EXPECT_EQ(9, childOf(list).configDescriptorLength);
    EXPECT_EQ(2, childOf(list).endpointCount);
}

TEST_F(CompositeDevices, AnInterfaceStringOfIndexZeroIsReadAsWritten) {
    const uint32_t list = listWith(
        configurationBytes({interfaceBytes(0), interfaceBytes(1), endpointBytes(0x82), endpointBytes(0x02)}),
        R"({"languages":[65]})");
    EXPECT_STREQ("A", childOf(list).sProduct);
}

}  // namespace
