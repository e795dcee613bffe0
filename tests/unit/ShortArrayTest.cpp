// Java arrays that are shorter than the call says: the results are the same and the heap stays intact. Each
// array ends at the end of its own heap block, so that the address sanitizer detects a byte too many.
#include <gmock/gmock.h>

#include "JniTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

using ::testing::ElementsAre;

namespace {

class ShortArrays : public JniTest {
 protected:
    void SetUp() override {
        JniTest::SetUp();
        openSession({deviceJson("tool", R"({"control":[
            {"requestType":"0xC0","request":1,"reply":"01020304"},
            {"requestType":"0x40","request":2,"store":"slot"}, {"requestType":"0xC0","request":2,"fetch":"slot"},
            {"requestType":0,"request":0,"reply":""}]})")});
        list = listOfVendor();
        ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    }

    jint query(jint type, jint index, jint size, FakeByteArray& array) {
        return call(usbGetDeviceDescriptor, list, 0, type, index, size, array.java());
    }

    jint list = -1;
};

}  // namespace

TEST_F(ShortArrays, AReadGivesWhatFits) {
    FakeByteArray array({9, 9, 9});
    EXPECT_EQ(100, call(usbReadBulkPipe, list, 0, 0x83, 100, 1000, array.java()));
    EXPECT_THAT(array.bytes, ElementsAre(0, 1, 2));
    EXPECT_EQ(jni.pins, jni.releases);
}

TEST_F(ShortArrays, AWriteSendsZeroesForWhatIsMissing) {
    FakeByteArray array({7, 8});
    EXPECT_EQ(4, call(usbWriteBulkPipe, list, 0, 0x03, 4, 1000, array.java()));
    EXPECT_THAT(bus.received("tool", 0x03), ElementsAre(ElementsAre(7, 8, 0, 0)));
    EXPECT_THAT(array.bytes, ElementsAre(7, 8));
}

TEST_F(ShortArrays, APacketWriteSendsZeroesForWhatIsMissing) {
    FakeByteArray array({7});
    EXPECT_EQ(64, call(usbWriteInterruptPipeEx, list, 0, 0x02, 64, 1000, array.java(), 64, 0xFF));
    std::vector<uint8_t> packet(64, 0);
    packet[0] = 7;
    EXPECT_THAT(bus.received("tool", 0x02), ElementsAre(packet));
}

TEST_F(ShortArrays, AnEmptyArrayIsLikeAnyShortOne) {
    FakeByteArray array({});
    EXPECT_EQ(8, call(usbReadBulkPipe, list, 0, 0x83, 8, 1000, array.java()));
    EXPECT_EQ(0, call(usbReadControlPipe, list, 0, 0, 1000, array.java())) << "a setup packet of zeroes";
}

TEST_F(ShortArrays, AControlReadGivesWhatFits) {
    FakeByteArray array({-64, 1, 0, 0, 0, 0, 4, 0, 99});
    EXPECT_EQ(4, call(usbReadControlPipe, list, 0, 0, 1000, array.java()));
    EXPECT_EQ(1, array.bytes[8]);
}

TEST_F(ShortArrays, AControlReadOfFourKilobytesTouchesOnlyTheArray) {
    FakeByteArray array({-64, 1, 0, 0, 0, 0, 0, 16});
    EXPECT_EQ(4, call(usbReadControlPipe, list, 0, 0, 1000, array.java()));
    EXPECT_THAT(array.bytes, ElementsAre(-64, 1, 0, 0, 0, 0, 0, 16));
}

TEST_F(ShortArrays, AControlWriteSendsZeroesForWhatIsMissing) {
    FakeByteArray out({0x40, 2, 0, 0, 0, 0, 3, 0, 5});
    EXPECT_EQ(3, call(usbWriteControlPipe, list, 0, 0, 1000, out.java()));
    FakeByteArray back({-64, 2, 0, 0, 0, 0, 3, 0, 99, 99, 99});
    EXPECT_EQ(3, call(usbReadControlPipe, list, 0, 0, 1000, back.java()));
    EXPECT_THAT(std::vector<jbyte>(back.bytes.begin() + 8, back.bytes.end()), ElementsAre(5, 0, 0));
}

TEST_F(ShortArrays, ADeviceDescriptorGivesWhatFits) {
    FakeByteArray array(std::vector<jbyte>(4));
    EXPECT_EQ(18, query(1, 0, 8, array));
    EXPECT_THAT(array.bytes, ElementsAre(18, 1, ::testing::_, ::testing::_));
}

TEST_F(ShortArrays, AConfigurationGivesWhatFits) {
    FakeByteArray array(std::vector<jbyte>(2));
    const jint whole = record(static_cast<uint32_t>(list), 0).configDescriptorLength;
    EXPECT_EQ(whole, query(2, 0, 0x7FFFFFFF, array));
    EXPECT_THAT(array.bytes, ElementsAre(9, 2));
}

TEST_F(ShortArrays, AStringGivesWhatFits) {
    FakeByteArray array(std::vector<jbyte>(2));
    EXPECT_EQ(4, query(3, 3, 64, array));
    EXPECT_THAT(array.bytes, ElementsAre('t', 'o'));
}

TEST_F(ShortArrays, AnEndpointDescriptorGivesWhatFits) {
    FakeByteArray array(std::vector<jbyte>(3));
    EXPECT_EQ(7, query(5, 0x81, 0, array));
    EXPECT_THAT(array.bytes, ElementsAre(7, 5, -127));
}

TEST_F(ShortArrays, AnEndpointListGivesWhatFits) {
    FakeByteArray array(std::vector<jbyte>(9));
    EXPECT_EQ(10, call(usbGetEndpointList, list, 0, array.java()));
    EXPECT_THAT(array.bytes, ElementsAre(1, 0, 64, 0, 2, 0, 0, 0, -127));
}

TEST_F(ShortArrays, NegativeLengthsAreFailedSubmissions) {
    auto& entry = record(static_cast<uint32_t>(list), 0);
    FakeByteArray array(std::vector<jbyte>(16));
    EXPECT_EQ(-112, call(usbWriteBulkPipe, list, 0, 0x01, -1, 1000, array.java()));
    EXPECT_EQ(-2, entry.lastResult);
    entry.lastResult = 0;
    EXPECT_EQ(-113, call(usbReadInterruptPipe, list, 0, 0x82, -2147483647 - 1, 1000, array.java()));
    EXPECT_EQ(-2, entry.lastResult);
    EXPECT_EQ(0, call(usbWriteInterruptPipeEx, list, 0, 0x02, -5, 1000, array.java(), 64, 0))
        << "no packet to send";
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_F(ShortArrays, ALengthThatTheCallerNeverMeantIsSurvived) {
    FakeByteArray array({1});
    bus.failCall("libusb_submit_transfer", 1, -11);
    EXPECT_EQ(-112, call(usbWriteBulkPipe, list, 0, 0x03, 0x10000000, 1000, array.java()));
    EXPECT_EQ(jni.pins, jni.releases);
}

TEST_F(ShortArrays, NegativeSizesAreCopiedFromNowhere) {
    FakeByteArray array({9});
    EXPECT_EQ(0, query(2, 0, -1, array));
    EXPECT_EQ(-1, query(3, 3, -1, array));
    EXPECT_THAT(array.bytes, ElementsAre(9));
}
