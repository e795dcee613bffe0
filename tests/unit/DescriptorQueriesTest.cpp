// Descriptors and endpoint lists as Java gets them, from the copies in a record. Needs no bus.
#include <gmock/gmock.h>

#include <cstring>
#include <numeric>

#include "MacOSXUSBAccess/io/DescriptorQueries.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

constexpr uint8_t kUntouched = 0xEE;

class DescriptorQueries : public ::testing::Test {
 protected:
    DescriptorQueries() {
        entry.deviceDescriptorLength = 18;
        std::iota(entry.deviceDescriptor, entry.deviceDescriptor + 18, uint8_t{0x10});
    }

    /// Queries with a buffer of 600 bytes; the bytes written are in `given`.
    int32_t query(int32_t type, int32_t index, int32_t size) {
        given.assign(600, kUntouched);
        return LibUSB_GetDeviceDescriptor(&entry, given.data(), type, index, size);
    }
    void setConfiguration(const std::vector<uint8_t>& bytes) {
        std::copy(bytes.begin(), bytes.end(), entry.configDescriptor);
        entry.configDescriptorLength = static_cast<int32_t>(bytes.size());
    }
    std::vector<uint8_t> head(size_t count) const {
        return {given.begin(), given.begin() + static_cast<std::ptrdiff_t>(count)};
    }
    void expectUntouchedFrom(size_t count) const {
        EXPECT_THAT(std::vector<uint8_t>(given.begin() + static_cast<std::ptrdiff_t>(count), given.end()),
                    Each(kUntouched));
    }

    DeviceRecord entry{};
    std::vector<uint8_t> given;
};

/// A configuration descriptor, an interface, endpoint 0x01 and endpoint 0x81.
const std::vector<uint8_t> kConfiguration{9, 2, 32, 0, 1,    1, 0,  0x80, 50, 9, 4, 0,    0, 2,  0xFF, 0,
                                          0, 0, 7,  5, 0x01, 2, 64, 0,    0,  7, 5, 0x81, 2, 64, 0,    1};

}  // namespace

TEST_F(DescriptorQueries, RefuseTypesOutsideOneToFiveAndInterfaces) {
    setConfiguration(kConfiguration);
    for (const int32_t type : {0, 4, 6, -1, 255}) {
        EXPECT_EQ(-114, query(type, 0, 64));
        expectUntouchedFrom(0);
    }
}

TEST_F(DescriptorQueries, GiveTheDeviceDescriptor) {
    EXPECT_EQ(18, query(1, 0, 64));
    EXPECT_THAT(head(18), ElementsAreArray(entry.deviceDescriptor, 18));
    expectUntouchedFrom(18);
}

TEST_F(DescriptorQueries, GiveTheWholeDeviceDescriptorWhateverTheSize) {
    for (const int32_t size : {8, 1, 18, 0, -1}) {
        EXPECT_EQ(18, query(1, 0, size));
        EXPECT_THAT(head(18), ElementsAreArray(entry.deviceDescriptor, 18));
        expectUntouchedFrom(18);
    }
}

TEST_F(DescriptorQueries, TellWhenThereIsNoDeviceDescriptor) {
    entry.deviceDescriptorLength = 0;
    EXPECT_EQ(-131, query(1, 0, 64));
    expectUntouchedFrom(0);
}

TEST_F(DescriptorQueries, GiveTheConfigurationUpToTheSize) {
    setConfiguration(kConfiguration);
    EXPECT_EQ(32, query(2, 0, 64));
    EXPECT_THAT(head(32), ElementsAreArray(kConfiguration));
    expectUntouchedFrom(32);
    EXPECT_EQ(9, query(2, 0, 9));
    expectUntouchedFrom(9);
    EXPECT_EQ(0, query(2, 0, 0));
    EXPECT_EQ(0, query(2, 0, -5));
    expectUntouchedFrom(0);
}

TEST_F(DescriptorQueries, GiveAConfigurationOf512Bytes) {
    setConfiguration(std::vector<uint8_t>(512, 7));
    EXPECT_EQ(512, query(2, 0, 600));
    expectUntouchedFrom(512);
}

TEST_F(DescriptorQueries, GiveAConfigurationOfOneByte) {
    setConfiguration({9});
    EXPECT_EQ(1, query(2, 0, 64));
    EXPECT_EQ(9, given[0]);
}

TEST_F(DescriptorQueries, TellWhenThereIsNoConfiguration) {
    EXPECT_EQ(-131, query(2, 0, 64));
    EXPECT_EQ(-131, query(5, 0x81, 64));
}

TEST_F(DescriptorQueries, GiveTheThreeStringsAsText) {
    std::strcpy(entry.sManufacturer, "Maker");
    std::strcpy(entry.sProduct, "Thing");
    std::strcpy(entry.sSerialNumber, "0123456789");
    EXPECT_EQ(5, query(3, 1, 64));
    EXPECT_THAT(head(6), ElementsAre('M', 'a', 'k', 'e', 'r', 0));
    expectUntouchedFrom(6);
    EXPECT_EQ(5, query(3, 2, 64));
    EXPECT_EQ('T', given[0]);
    EXPECT_EQ(10, query(3, 3, 64));
    EXPECT_EQ('0', given[0]);
    for (const int32_t index : {0, 4, -1}) {
        EXPECT_EQ(-114, query(3, index, 64));
        expectUntouchedFrom(0);
    }
}

TEST_F(DescriptorQueries, CutAStringThatDoesNotFitWithItsTerminator) {
    std::strcpy(entry.sSerialNumber, "0123456789");
    EXPECT_EQ(10, query(3, 3, 11));
    EXPECT_EQ(0, given[10]);
    expectUntouchedFrom(11);
    EXPECT_EQ(10, query(3, 3, 10));
    EXPECT_THAT(head(10), ElementsAre('0', '1', '2', '3', '4', '5', '6', '7', '8', 0));
    expectUntouchedFrom(10);
    EXPECT_EQ(2, query(3, 3, 2));
    EXPECT_THAT(head(2), ElementsAre('0', 0));
    expectUntouchedFrom(2);
    for (const int32_t size : {1, 0, -7}) {
        EXPECT_EQ(size, query(3, 3, size));
        expectUntouchedFrom(0);
    }
}

TEST_F(DescriptorQueries, GiveAnEmptyString) {
    EXPECT_EQ(0, query(3, 1, 1));
    EXPECT_EQ(0, given[0]);
    expectUntouchedFrom(1);
    EXPECT_EQ(0, query(3, 1, 0));
    expectUntouchedFrom(0);
}

TEST_F(DescriptorQueries, GiveAnEndpointDescriptor) {
    setConfiguration(kConfiguration);
    for (const int32_t size : {0, 20, 7, -1}) {
        EXPECT_EQ(7, query(5, 0x81, size));
        EXPECT_THAT(head(7), ElementsAre(7, 5, 0x81, 2, 64, 0, 1));
        expectUntouchedFrom(7);
    }
    for (const int32_t size : {1, 6}) {
        EXPECT_EQ(size, query(5, 0x01, size));
        expectUntouchedFrom(static_cast<size_t>(size));
    }
}

TEST_F(DescriptorQueries, LookAtTheLowEightBitsOfTheEndpointAddress) {
    setConfiguration(kConfiguration);
    EXPECT_EQ(7, query(5, static_cast<int8_t>(0x81), 7));
    EXPECT_EQ(0x81, given[2]);
    EXPECT_EQ(7, query(5, 0x1201, 7));
    EXPECT_EQ(0x01, given[2]);
}

TEST_F(DescriptorQueries, TellWhenThereIsNoSuchEndpoint) {
    setConfiguration(kConfiguration);
    EXPECT_EQ(-131, query(5, 0x82, 7));
    EXPECT_EQ(-131, query(5, 0x80, 7)) << "bytes of other descriptors do not count";
    expectUntouchedFrom(0);
}

TEST_F(DescriptorQueries, StopAtADescriptorOfLengthZero) {
    auto bytes = kConfiguration;
    bytes[25] = 0;
    setConfiguration(bytes);
    EXPECT_EQ(7, query(5, 0x01, 7));
    EXPECT_EQ(-131, query(5, 0x81, 7));
}

TEST_F(DescriptorQueries, CompleteACutEndpointDescriptorWithZeroes) {
    auto bytes = kConfiguration;
    bytes.resize(29);
    setConfiguration(bytes);
    entry.configDescriptor[29] = 0xAA;  // beyond what is stored
    EXPECT_EQ(7, query(5, 0x81, 7));
    EXPECT_THAT(head(7), ElementsAre(7, 5, 0x81, 2, 0, 0, 0));
}

TEST_F(DescriptorQueries, WriteNothingToANullBuffer) {
    setConfiguration(kConfiguration);
    std::strcpy(entry.sProduct, "Thing");
    const auto ask = [&](int32_t type, int32_t index, int32_t size) {
        return LibUSB_GetDeviceDescriptor(&entry, nullptr, type, index, size);
    };
    EXPECT_EQ(18, ask(1, 0, 64));
    EXPECT_EQ(32, ask(2, 0, 64));
    EXPECT_EQ(5, ask(3, 2, 64));
    EXPECT_EQ(3, ask(3, 2, 3));
    EXPECT_EQ(7, ask(5, 0x81, 64));
}

TEST_F(DescriptorQueries, TellHowManyBytesTheyMayWrite) {
    EXPECT_EQ(18, descriptorQueryBytes(1, 0));
    EXPECT_EQ(7, descriptorQueryBytes(5, 100));
    EXPECT_EQ(100, descriptorQueryBytes(2, 100));
    EXPECT_EQ(512, descriptorQueryBytes(2, 0x7FFFFFFF));
    EXPECT_EQ(100, descriptorQueryBytes(3, 100));
    EXPECT_EQ(0, descriptorQueryBytes(3, -1));
}

TEST_F(DescriptorQueries, GiveTheEndpointListInLittleEndianFields) {
    entry.endpointCount = 2;
    entry.endpoints[0] = {0x81, 1, 2, 64};
    entry.endpoints[1] = {0x01, 0, 2, 64};
    given.assign(32, kUntouched);
    EXPECT_EQ(2, LibUSB_GetEndpointList(&entry, given.data()));
    EXPECT_THAT(head(16), ElementsAre(0x81, 0, 0x40, 0, 2, 0, 1, 0, 0x01, 0, 0x40, 0, 2, 0, 0, 0));
    expectUntouchedFrom(16);
}

TEST_F(DescriptorQueries, GiveTheLowSixteenBitsOfEachEndpointField) {
    entry.endpointCount = 1;
    entry.endpoints[0] = {0x12345, 1, 3, 0x1400};
    given.assign(8, kUntouched);
    EXPECT_EQ(1, LibUSB_GetEndpointList(&entry, given.data()));
    EXPECT_THAT(given, ElementsAre(0x45, 0x23, 0x00, 0x14, 3, 0, 1, 0));
}

TEST_F(DescriptorQueries, GiveSixteenEndpoints) {
    entry.endpointCount = 16;
    for (int32_t i = 0; i < 16; ++i) {
        entry.endpoints[i] = {i, 0, 2, 8};
    }
    given.assign(129, kUntouched);
    EXPECT_EQ(16, LibUSB_GetEndpointList(&entry, given.data()));
    EXPECT_EQ(15, given[120]);
    expectUntouchedFrom(128);
}

TEST_F(DescriptorQueries, GiveTheNumberOfEndpointsAlone) {
    entry.endpointCount = 3;
    EXPECT_EQ(3, LibUSB_GetEndpointList(&entry, nullptr));
    for (const int32_t none : {0, -1}) {
        entry.endpointCount = none;
        given.assign(8, kUntouched);
        EXPECT_EQ(0, LibUSB_GetEndpointList(&entry, given.data()));
        expectUntouchedFrom(0);
    }
}

TEST_F(DescriptorQueries, GiveAShorterDeviceDescriptorWhenThereIsRoomForMore) {
    entry.deviceDescriptorLength = 1;
    EXPECT_EQ(1, query(1, 0, 64));
    entry.deviceDescriptorLength = 10;
    EXPECT_EQ(10, query(1, 0, 64));
    expectUntouchedFrom(10);
    EXPECT_EQ(18, query(1, 0, 10)) << "no more room than it needs";
    EXPECT_EQ(18, query(1, 0, 8));
    expectUntouchedFrom(18);
}
