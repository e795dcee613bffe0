#include <gmock/gmock.h>

#include <random>
#include <vector>

#include "DescriptorBytes.h"
#include "MacOSXUSBAccess/records/DescriptorWalk.h"
#include "MacOSXUSBAccess/records/Descriptors.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using Bytes = DescriptorBytes;

/// A walk over bytes on the heap, so that the address sanitizer detects reads beyond them.
DescriptorWalk walkOf(const Bytes& bytes, int32_t offset = 0) {
    return {bytes.data(), static_cast<int32_t>(bytes.size()), offset};
}

std::vector<int32_t> offsetsOf(DescriptorWalk walk) {
    std::vector<int32_t> offsets;
    for (; walk.atDescriptor(); walk.advance()) {
        offsets.push_back(walk.offset());
    }
    return offsets;
}

TEST(DescriptorWalk, VisitsEachDescriptorAndEndsAtTheEnd) {
    const Bytes bytes{2, 10, 4, 20, 0, 0, 3, 30, 0};
    EXPECT_THAT(offsetsOf(walkOf(bytes)), ElementsAre(0, 2, 6));
    DescriptorWalk walk = walkOf(bytes);
    EXPECT_EQ(10, walk.type());
    walk.advance();
    EXPECT_EQ(20, walk.type());
    walk.advance();
    walk.advance();
    EXPECT_TRUE(walk.atEnd());
    EXPECT_FALSE(walk.atZeroLength());
    EXPECT_EQ(9, walk.offset());
}

TEST(DescriptorWalk, StartsAtTheGivenOffset) {
    EXPECT_THAT(offsetsOf(walkOf({2, 0, 2, 0, 2, 0}, 2)), ElementsAre(2, 4));
    EXPECT_TRUE(walkOf({2, 0}, 2).atEnd());
    EXPECT_TRUE(walkOf({2, 0}, 9).atEnd());
}

TEST(DescriptorWalk, HasNothingToVisitInAnEmptyBlock) {
    for (const int32_t length : {0, -1}) {
        const DescriptorWalk walk(nullptr, length);
        EXPECT_TRUE(walk.atEnd());
        EXPECT_FALSE(walk.atDescriptor());
        EXPECT_FALSE(walk.atZeroLength());
    }
}

TEST(DescriptorWalk, TellsAZeroLengthFromTheEnd) {
    const Bytes bytes{2, 1, 0, 4, 2, 1};
    DescriptorWalk walk = walkOf(bytes);
    walk.advance();
    EXPECT_TRUE(walk.atZeroLength());
    EXPECT_FALSE(walk.atDescriptor());
    EXPECT_FALSE(walk.atEnd());
    EXPECT_EQ(2, walk.offset());
}

TEST(DescriptorWalk, ADescriptorThatClaimsMoreThanThereIsEndsTheWalkBehindIt) {
    const Bytes bytes{2, 1, 255, 4, 7};
    EXPECT_THAT(offsetsOf(walkOf(bytes)), ElementsAre(0, 2));
    DescriptorWalk walk = walkOf(bytes, 2);
    walk.advance();
    EXPECT_TRUE(walk.atEnd());
    EXPECT_EQ(5, walk.offset());
}

TEST(DescriptorWalk, ALengthThatPassesTheEndByOneEndsAtTheEnd) {
    const Bytes bytes{2, 1, 4, 4, 7};
    DescriptorWalk walk = walkOf(bytes, 2);
    walk.advance();
    EXPECT_EQ(5, walk.offset());
    EXPECT_EQ(0, walk.remaining());
}

TEST(DescriptorWalk, ALengthOfOneIsALength) {
    EXPECT_THAT(offsetsOf(walkOf({1, 1, 2, 9})), ElementsAre(0, 1, 2));
}

TEST(DescriptorWalk, BytesBeyondTheEndAreZero) {
    const Bytes bytes{9, 4, 3};
    const DescriptorWalk walk = walkOf(bytes);
    EXPECT_EQ(3, walk.byte(2));
    EXPECT_EQ(0, walk.byte(3));
    EXPECT_EQ(0, walk.byte(8));
    EXPECT_EQ(3, walk.word(2));
    EXPECT_EQ(3, walk.remaining());
    const Bytes single{9};
    EXPECT_EQ(0, walkOf(single).type());
}

TEST(DescriptorWalk, WordsAreLittleEndian) {
    const Bytes bytes{4, 0, 0x34, 0x12};
    EXPECT_EQ(0x1234, walkOf(bytes).word(2));
}

TEST(DescriptorWalk, NoBytesLeadItOutOfTheBlockOrRoundInIt) {
    std::mt19937 random(20240531);  // NOLINT(cert-msc51-cpp): the same blocks in every run
    for (int block = 0; block < 20'000; ++block) {
        Bytes bytes(random() % 64);
        for (uint8_t& byte : bytes) {
            byte = static_cast<uint8_t>(random() % (block % 2 == 0 ? 256 : 8));
        }
        int32_t last = -1;
        for (DescriptorWalk walk = walkOf(bytes); walk.atDescriptor(); walk.advance()) {
            ASSERT_GT(walk.offset(), last);
            ASSERT_GT(walk.remaining(), 0);
            last = walk.offset() + (walk.type() + walk.word(4)) * 0;  // fields are read, too
        }
        tagUSB_ENDPOINT_INFO endpoints[kMaxEndpoints];
        ASSERT_LE(setEndpointList(kMaxEndpoints, endpoints, bytes.data(), static_cast<int32_t>(bytes.size())),
                  kMaxEndpoints);
    }
}

/// Sixteen entries, all in use before the call.
class EndpointList : public ::testing::Test {
 protected:
    void SetUp() override {
        std::fill(std::begin(endpoints_), std::end(endpoints_), tagUSB_ENDPOINT_INFO{7, 7, 7, 7});
    }

    int32_t set(const Bytes& bytes, int32_t entries = kMaxEndpoints) {
        return setEndpointList(entries, endpoints_, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    Endpoint at(std::size_t index) const { return endpointsOf(endpoints_)[index]; }
    /// The entries from an index on.
    std::vector<Endpoint> from(std::ptrdiff_t first) const {
        const std::vector<Endpoint> all = endpointsOf(endpoints_);
        return {all.begin() + first, all.end()};
    }

    static constexpr Endpoint kFormer{7, 7, 7, 7};
    tagUSB_ENDPOINT_INFO endpoints_[kMaxEndpoints]{};
};

TEST_F(EndpointList, DescribesTheEndpointsInDescriptorOrder) {
    EXPECT_EQ(2, set(joined({interfaceBytes(0), endpointBytes(0x81, 2), endpointBytes(0x02, 3, 1024)})));
    EXPECT_EQ((Endpoint{0x81, 1, 2, 64}), at(0));
    EXPECT_EQ((Endpoint{0x02, 0, 3, 1024}), at(1));
    EXPECT_THAT(from(2), Each(kUnusedEndpoint));
}

TEST_F(EndpointList, UnusedEntriesAreAllOnes) {
    EXPECT_EQ(0, set(interfaceBytes(0)));
    const auto* bytes = reinterpret_cast<const uint8_t*>(endpoints_);
    EXPECT_THAT(Bytes(bytes, bytes + sizeof endpoints_), Each(0xFF));
}

TEST_F(EndpointList, PassesOverOtherDescriptors) {
    EXPECT_EQ(1, set(joined({interfaceBytes(0), {9, 0x21, 0, 0, 0, 0, 0, 0, 0}, endpointBytes(0x81)})));
}

TEST_F(EndpointList, StopsAtTheNextInterface) {
    EXPECT_EQ(1,
              set(joined({interfaceBytes(0), endpointBytes(0x81), interfaceBytes(1), endpointBytes(0x82)})));
    EXPECT_THAT(from(1), Each(kUnusedEndpoint));
}

TEST_F(EndpointList, StopsAtAZeroLength) {
    EXPECT_EQ(1, set(joined({interfaceBytes(0), endpointBytes(0x81), {0, 5}, endpointBytes(0x82)})));
    EXPECT_EQ(0, set({0, 4, 0, 0, 0, 0, 0, 0, 0, 7, 5, 0x81, 2, 64, 0, 0}));
}

TEST_F(EndpointList, StopsAtTheSixteenthEndpoint) {
    Bytes bytes = interfaceBytes(0);
    for (uint8_t number = 1; number <= 17; ++number) {
        bytes = joined({bytes, endpointBytes(number)});
    }
    EXPECT_EQ(16, set(bytes));
    EXPECT_EQ(16, endpoints_[15].address);
}

TEST_F(EndpointList, FillsNoMoreThanTheGivenEntries) {
    const Bytes bytes = joined({interfaceBytes(0), endpointBytes(1), endpointBytes(2), endpointBytes(3)});
    EXPECT_EQ(2, set(bytes, 2));
    EXPECT_THAT(from(2), Each(kFormer));
    EXPECT_EQ(0, set(bytes, 0));
    EXPECT_EQ(0, set(bytes, -5));
    EXPECT_THAT(from(2), Each(kFormer));
}

TEST_F(EndpointList, AnEndpointCutByTheEndIsStoredWithZeros) {
    Bytes bytes = joined({interfaceBytes(0), endpointBytes(0x81)});
    bytes.resize(interfaceBytes(0).size() + 3);
    EXPECT_EQ(1, set(bytes));
    EXPECT_EQ((Endpoint{0x81, 1, 0, 0}), at(0));
}

TEST_F(EndpointList, HasNoEndpointsInNoBytes) {
    EXPECT_EQ(0, set({}));
    EXPECT_THAT(from(0), Each(kUnusedEndpoint));
}

TEST_F(EndpointList, ClearSetsTheGivenEntriesOnly) {
    clearEndpointList(0, endpoints_);
    clearEndpointList(-1, endpoints_);
    EXPECT_THAT(from(0), Each(kFormer));
    clearEndpointList(2, endpoints_);
    EXPECT_EQ(kUnusedEndpoint, at(0));
    EXPECT_EQ(kUnusedEndpoint, at(1));
    EXPECT_THAT(from(2), Each(kFormer));
}

TEST(ClassList, IsLeftToTheInterfacesByAKnownDescriptorOnly) {
    tagUSB_DEVICE_ACCESS_ENTRY entry{};
    EXPECT_FALSE(classLeftToInterfaces(entry));
    entry.deviceDescriptorLength = 18;
    for (int code = 0; code < 0x100; ++code) {
        entry.deviceDescriptor[4] = static_cast<uint8_t>(code);
        EXPECT_EQ(code == 0x00 || code == 0xEF, classLeftToInterfaces(entry)) << code;
    }
}

TEST(ClassList, HoldsTheDrivenDeviceAndInterfaceClasses) {
    for (uint32_t code = 0; code < 0x200; ++code) {
        const bool device = code == 0x00 || code == 0x03 || code == 0xEF || code == 0xFF;
        EXPECT_EQ(device, inClassList(code, 0)) << code;
        EXPECT_EQ(device, inClassList(code, 2)) << code;
        EXPECT_EQ(device || code == 0xFE, inClassList(code, 1)) << code;
    }
}

}  // namespace
