#include <gmock/gmock.h>

#include <memory>
#include <random>

#include "DescriptorBytes.h"
#include "FakeConfiguration.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/DescriptorQueries.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"

namespace {

using ::testing::Each;

/// Lists of devices with invalid configurations.
class HostileDescriptors : public ListTest {
 protected:
    /// A device that returns exactly these bytes, whatever libusb would accept.
    tagUSB_DEVICE_ACCESS_ENTRY& listDeviceWith(const DescriptorBytes& bytes) {
        claimed_ = std::make_unique<FakeConfiguration>(static_cast<uint16_t>(bytes.size()));
        return listDeviceWithOverrides(configurationReply(bytes));
    }
    tagUSB_DEVICE_ACCESS_ENTRY& listDeviceWithOverrides(const std::string& overrides) {
        startSession({deviceJson("tool", overrides)});
        return record(createList({kVendor}), 0);
    }
    static void expectNoConfiguration(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        EXPECT_EQ(0, entry.configDescriptorLength);
        EXPECT_THAT(entry.configDescriptor, Each(0));
        EXPECT_EQ(0, entry.endpointCount);
        EXPECT_THAT(endpointsOf(entry.endpoints), Each(kUnusedEndpoint));
        EXPECT_EQ(18, entry.deviceDescriptorLength);
        EXPECT_STREQ("tool", entry.sSerialNumber);
    }

    std::unique_ptr<FakeConfiguration> claimed_;  ///< total length for libusb; else it parses itself
};

/// A configuration of 600 bytes with `part` at an offset (at least 9), and descriptors of an unknown type
/// before and after it.
DescriptorBytes longConfiguration(std::size_t offset, const DescriptorBytes& part) {
    DescriptorBytes bytes{9, 2, 0x58, 0x02, 1, 1, 0, 0x80, 50};
    const auto padTo = [&bytes](std::size_t size) {
        while (bytes.size() < size) {
            DescriptorBytes one(std::min<std::size_t>(size - bytes.size(), 100), 0x30);
            one[0] = static_cast<uint8_t>(one.size());
            bytes = joined({bytes, one});
        }
    };
    padTo(offset);
    bytes = joined({bytes, part});
    padTo(600);
    return bytes;
}

TEST_F(HostileDescriptors, AZeroLengthBeforeTheInterfaceClearsTheConfiguration) {
    expectNoConfiguration(
        listDeviceWith(configurationBytes({{0, 0}, interfaceBytes(0), endpointBytes(0x81)})));
}

TEST_F(HostileDescriptors, AZeroLengthAsTheFirstByteClearsTheConfiguration) {
    expectNoConfiguration(listDeviceWith({0, 2, 18, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, 0, 0xFF, 0, 0, 0}));
}

TEST_F(HostileDescriptors, AnInterfaceOfZeroLengthClearsTheConfiguration) {
    expectNoConfiguration(listDeviceWith(configurationBytes({{0, 4, 0, 0, 1, 0xFF, 0xFF, 0, 0}})));
}

TEST_F(HostileDescriptors, AZeroLengthBehindTheInterfaceEndsItsEndpoints) {
    const DescriptorBytes bytes = configurationBytes(
        {interfaceBytes(0), endpointBytes(0x81), {0, 0}, endpointBytes(0x01), interfaceBytes(1)});
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWith(bytes);
    EXPECT_EQ(bytes, configurationOf(entry));
    EXPECT_EQ(1, entry.endpointCount);
}

TEST_F(HostileDescriptors, ALengthPastTheEndEndsTheWalk) {
    const tagUSB_DEVICE_ACCESS_ENTRY& entry =
        listDeviceWith(configurationBytes({{255, 0x30, 0}, interfaceBytes(0), endpointBytes(0x81)}));
    EXPECT_EQ(28, entry.configDescriptorLength);
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_THAT(endpointsOf(entry.endpoints), Each(kUnusedEndpoint));
}

TEST_F(HostileDescriptors, AnInterfaceThatClaimsEverythingBehindItHasNoEndpoints) {
    DescriptorBytes interface = interfaceBytes(0);
    interface[0] = 255;
    EXPECT_EQ(0, listDeviceWith(configurationBytes({interface, endpointBytes(0x81)})).endpointCount);
}

TEST_F(HostileDescriptors, ASingleByteIsAConfiguration) {
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWith({9});
    EXPECT_EQ(1, entry.configDescriptorLength);
    EXPECT_EQ(0, entry.endpointCount);
    EXPECT_EQ(0U, entry.isUnsupportedClass);
}

TEST_F(HostileDescriptors, AnInterfaceCutByTheClampHasTheClassThatIsLeftOfIt) {
    claimed_ = std::make_unique<FakeConfiguration>(uint16_t{600});
    const auto interfaceAt = [](std::size_t offset) {
        return configurationReply(longConfiguration(offset, interfaceBytes(0, 0x08)));
    };
    startSession({deviceJson("cut", interfaceAt(507)), deviceJson("just there", interfaceAt(506))});
    const uint32_t list = createList({kVendor});
    const tagUSB_DEVICE_ACCESS_ENTRY& cut = recordNamed(list, "cut");
    EXPECT_EQ(512, cut.configDescriptorLength);
    EXPECT_EQ(0, cut.endpointCount);
    EXPECT_EQ(0U, cut.isUnsupportedClass);  // the class byte is the first byte beyond the buffer
    EXPECT_EQ(1U, recordNamed(list, "just there").isUnsupportedClass);
}

TEST_F(HostileDescriptors, ASplitInterfaceCutByTheClampIsPassedOver) {
    for (const std::size_t offset : {503U, 504U, 508U, 511U}) {
        const DescriptorBytes bytes = longConfiguration(
            offset - 9,
            joined({interfaceBytes(0, 3), interfaceBytes(1), endpointBytes(0x81), endpointBytes(0x01)}));
        claimed_ = std::make_unique<FakeConfiguration>(uint16_t{600});
        const uint32_t list = listDeviceWithOverrides(configurationReply(bytes)).pDeviceList->handle;
        EXPECT_EQ(1U, recordsOf(list).size()) << offset;
        LibUSB_ReleaseDeviceList(list);
        endSession();
    }
}

TEST_F(HostileDescriptors, ASliceCutByTheClampEndsThere) {
    const DescriptorBytes slice =
        joined({interfaceBytes(1), endpointBytes(0x81), endpointBytes(0x01), endpointBytes(0x82)});
    claimed_ = std::make_unique<FakeConfiguration>(uint16_t{600});
    const uint32_t list = listDeviceWithOverrides(configurationReply(longConfiguration(
                                                      477, joined({interfaceBytes(0, 3), slice}))))
                              .pDeviceList->handle;
    ASSERT_EQ(2U, recordsOf(list).size());
    const tagUSB_DEVICE_ACCESS_ENTRY& child = record(list, 1);
    EXPECT_EQ(26, child.configDescriptorLength);
    EXPECT_EQ(DescriptorBytes(slice.begin(), slice.begin() + 26), configurationOf(child));
    EXPECT_EQ(3, child.endpointCount);
    EXPECT_EQ((Endpoint{0x82, 1, 0, 0}), endpointsOf(child.endpoints)[2]);
}

TEST_F(HostileDescriptors, AnEndpointCutByTheClampIsAnsweredWithZeros) {
    claimed_ = std::make_unique<FakeConfiguration>(uint16_t{600});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWithOverrides(
        configurationReply(longConfiguration(500, joined({interfaceBytes(0), endpointBytes(0x81, 3, 512)}))));
    EXPECT_EQ(1, entry.endpointCount);
    EXPECT_EQ((Endpoint{0x81, 1, 0, 0}), endpointsOf(entry.endpoints)[0]);
    DescriptorBytes answer(7, 0xEE);
    EXPECT_EQ(7, LibUSB_GetDeviceDescriptor(&entry, answer.data(), kEndpointDescriptorQuery, 0x81, 7));
    EXPECT_EQ((DescriptorBytes{7, 5, 0x81, 0, 0, 0, 0}), answer);
}

TEST_F(HostileDescriptors, OfSeventeenEndpointsSixteenAreKept) {
    DescriptorBytes endpoints;
    for (int number = 1; number <= 17; ++number) {
        endpoints = joined({endpoints, endpointBytes(static_cast<uint8_t>(number))});
    }
    const DescriptorBytes bytes =
        configurationBytes({interfaceBytes(0), endpoints, interfaceBytes(1), endpoints});
    tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWith(bytes);
    EXPECT_EQ(16, entry.endpointCount);
    EXPECT_EQ(16, entry.endpoints[15].address);
    EXPECT_EQ(512U, entry.packetSize);  // the field that follows the array
    ASSERT_NE(nullptr, entry.pCompositeChild);
    EXPECT_EQ(16, entry.pCompositeChild->endpointCount);
    std::vector<uint8_t> answer(std::size_t{16} * 8);
    EXPECT_EQ(16, LibUSB_GetEndpointList(&entry, answer.data()));
}

TEST_F(HostileDescriptors, ATotalLengthOfZeroIsNoConfiguration) {
    claimed_ = std::make_unique<FakeConfiguration>(uint16_t{0});
    expectNoConfiguration(listDeviceWithOverrides("{}"));
}

TEST_F(HostileDescriptors, ATotalLengthThatLibusbRefusesIsNoConfiguration) {
    expectNoConfiguration(
        listDeviceWithOverrides(rawConfiguration(configurationBytes({interfaceBytes(0)}, 0))));
}

TEST_F(HostileDescriptors, ATotalLengthOf65535KeepsWhatTheDeviceSends) {
    const DescriptorBytes bytes = configurationBytes({interfaceBytes(0), endpointBytes(0x81)}, 65535);
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWithOverrides(rawConfiguration(bytes));
    EXPECT_EQ(bytes, configurationOf(entry));
    EXPECT_EQ(1, entry.endpointCount);
}

TEST_F(HostileDescriptors, ATotalLengthOf600KeepsTheFirst512Bytes) {
    const DescriptorBytes bytes = longConfiguration(9, joined({interfaceBytes(0), endpointBytes(0x81)}));
    const tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWithOverrides(rawConfiguration(bytes));
    EXPECT_EQ(512, entry.configDescriptorLength);
    EXPECT_EQ(DescriptorBytes(bytes.begin(), bytes.begin() + 512), configurationOf(entry));
    EXPECT_EQ(1, entry.endpointCount);
    EXPECT_EQ(-1, entry.endpoints[1].address);
}

TEST_F(HostileDescriptors, NoBytesAtAllBreakAList) {
    std::mt19937 random(977);  // NOLINT(cert-msc51-cpp): the same devices in every run
    for (int round = 0; round < 60; ++round) {
        DescriptorBytes bytes(random() % 600);
        for (uint8_t& byte : bytes) {
            // Half of the rounds use small lengths and the types that the walk looks for.
            byte = static_cast<uint8_t>(round % 2 == 0 ? random() % 256 : random() % 8);
        }
        claimed_ = std::make_unique<FakeConfiguration>(static_cast<uint16_t>(random() % 700));
        tagUSB_DEVICE_ACCESS_ENTRY& entry = listDeviceWithOverrides(configurationReply(bytes));
        EXPECT_GE(entry.configDescriptorLength, 0);
        EXPECT_LE(entry.configDescriptorLength, 512);
        EXPECT_GE(entry.endpointCount, 0);
        EXPECT_LE(entry.endpointCount, 16);
        EXPECT_EQ(512U, entry.packetSize);
        LibUSB_ReleaseDeviceList(entry.pDeviceList->handle);
        endSession();
    }
}

}  // namespace
