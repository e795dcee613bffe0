// The frame of the native methods that carry a Java array: find the record, pin, call, unpin, return.
#include <gmock/gmock.h>

#include "IoTest.h"
#include "JniTest.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

using ::testing::Each;
using ::testing::ElementsAre;

namespace {

std::vector<jbyte> counting(size_t count) {
    std::vector<jbyte> bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<jbyte>(i);
    }
    return bytes;
}

/// The device "tool" answers vendor request 1 with the bytes 01 02 03 04, and keeps the data of request 2.
class TransferMethods : public JniTest {
 protected:
    void SetUp() override {
        JniTest::SetUp();
        openSession({deviceJson("tool", R"({"control":[
            {"requestType":"0xC0","request":1,"reply":"01020304"},
            {"requestType":"0x40","request":2,"store":"slot"},
            {"requestType":"0xC0","request":2,"fetch":"slot"}]})")});
        list = listOfVendor();
        pinsBefore_ = jni.pins;
    }

    void open() { ASSERT_EQ(0, call(usbOpenDevice, list, 0)); }
    int pins() const { return jni.pins - pinsBefore_; }

    /// Calls every method that finds its record in the open-device map, one after the other, with `array`.
    std::vector<jint> callAllOpenDeviceMethods(jbyteArray array) {
        return {call(usbWriteControlPipe, list, 0, 0, 50, array),
                call(usbReadControlPipe, list, 0, 0, 50, array),
                call(usbWriteBulkPipe, list, 0, 1, 4, 50, array),
                call(usbReadBulkPipe, list, 0, 1, 4, 50, array),
                call(usbWriteInterruptPipe, list, 0, 2, 4, 50, array),
                call(usbReadInterruptPipe, list, 0, 2, 4, 50, array),
                call(usbWriteInterruptPipeEx, list, 0, 2, 4, 50, array, 64, 0),
                call(usbReadInterruptPipeEx, list, 0, 2, 4, 50, array, 64, 0),
                call(usbWriteBulkPipeEx, list, 0, 1, 4, 50, array, 64, 0),
                call(usbReadBulkPipeEx, list, 0, 1, 4, 50, array, 64, 0),
                call(usbResetPipe, list, 0, 1),
                call(usbCancelPipeTransfer, list, 0, 1)};
    }

    jint list = -1;

 private:
    int pinsBefore_ = 0;
};

}  // namespace

TEST_F(TransferMethods, OfADeviceThatIsNotOpenDoNotTouchTheArray) {
    FakeByteArray array(counting(16));
    EXPECT_THAT(callAllOpenDeviceMethods(array.java()), Each(-114));
    EXPECT_EQ(0, pins());
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_F(TransferMethods, OfADeviceThatWasClosedFindNothing) {
    open();
    ASSERT_EQ(0, call(usbCloseDevice, list, 0));
    FakeByteArray array(counting(16));
    EXPECT_THAT(callAllOpenDeviceMethods(array.java()), Each(-114));
}

TEST_F(TransferMethods, OfAnUnknownListFindNothing) {
    FakeByteArray array(counting(16));
    EXPECT_EQ(-114, call(usbReadBulkPipe, 77, 0, 1, 4, 50, array.java()));
    EXPECT_EQ(1U, g_DevMap.count(77));
    EXPECT_EQ(-114, call(usbGetEndpointList, 77, 0, array.java()));
    EXPECT_EQ(-114, call(usbGetDeviceDescriptor, 77, 0, 1, 0, 18, array.java()));
    EXPECT_EQ(0, pins());
}

TEST_F(TransferMethods, MoveBulkDataBothWays) {
    open();
    FakeByteArray sent(counting(100));
    EXPECT_EQ(100, call(usbWriteBulkPipe, list, 0, 0x01, 100, 1000, sent.java()));
    FakeByteArray received(std::vector<jbyte>(128, 99));
    EXPECT_EQ(100, call(usbReadBulkPipe, list, 0, -127, 128, 1000, received.java()));
    EXPECT_TRUE(std::equal(sent.bytes.begin(), sent.bytes.end(), received.bytes.begin()));
    EXPECT_EQ(counting(100), sent.bytes);
    EXPECT_EQ(2, pins());
    EXPECT_EQ(jni.pins, jni.releases);
    EXPECT_THAT(jni.modes, Each(0));
}

TEST_F(TransferMethods, MoveInterruptDataBothWays) {
    open();
    FakeByteArray sent(counting(64));
    EXPECT_EQ(64, call(usbWriteInterruptPipe, list, 0, 0x02, 64, 1000, sent.java()));
    FakeByteArray received(std::vector<jbyte>(64));
    EXPECT_EQ(64, call(usbReadInterruptPipe, list, 0, 0x82, 64, 1000, received.java()));
    EXPECT_EQ(sent.bytes, received.bytes);
}

TEST_F(TransferMethods, HandArgumentsOnInOrder) {
    open();
    FakeByteArray sent(counting(3));
    EXPECT_EQ(3, call(usbWriteInterruptPipeEx, list, 0, 0x02, 3, 1000, sent.java(), 64, 0x55));
    std::vector<uint8_t> padded(64, 0x55);
    padded[0] = 0;
    padded[1] = 1;
    padded[2] = 2;
    EXPECT_THAT(bus.received("tool", 0x02), ElementsAre(padded));
    FakeByteArray received(std::vector<jbyte>(64));
    EXPECT_EQ(64, call(usbReadInterruptPipeEx, list, 0, 0x82, 64, 1000, received.java(), 64, 0));
    EXPECT_EQ(-114, call(usbReadInterruptPipeEx, list, 0, 0x82, 64, 1000, received.java(), 63, 64));
    EXPECT_EQ(3, call(usbWriteBulkPipeEx, list, 0, 0x01, 3, 1000, sent.java(), 63, 64));
    EXPECT_EQ(3, call(usbReadBulkPipeEx, list, 0, 0x81, 64, 1000, received.java(), 63, 64));
    EXPECT_EQ(-150, call(usbReadBulkPipeEx, list, 0, 0x81, 64, 20, received.java(), 64, 0));
}

TEST_F(TransferMethods, MoveControlDataBothWays) {
    open();
    FakeByteArray in({-64, 1, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0});
    EXPECT_EQ(4, call(usbReadControlPipe, list, 0, 1234, 1000, in.java()));
    EXPECT_THAT(in.bytes, ElementsAre(-64, 1, 0, 0, 0, 0, 4, 0, 1, 2, 3, 4));
    FakeByteArray out({0x40, 2, 0, 0, 0, 0, 2, 0, 7, 8});
    EXPECT_EQ(2, call(usbWriteControlPipe, list, 0, -1, 1000, out.java()));
    FakeByteArray back({-64, 2, 0, 0, 0, 0, 2, 0, 0, 0});
    EXPECT_EQ(2, call(usbReadControlPipe, list, 0, 0, 1000, back.java()));
    EXPECT_THAT(back.bytes, ElementsAre(-64, 2, 0, 0, 0, 0, 2, 0, 7, 8));
}

TEST_F(TransferMethods, AnswerResetAndCancelWithoutAnArray) {
    open();
    EXPECT_EQ(-120, call(usbResetPipe, list, 0, 0x81));
    EXPECT_EQ(-5, call(usbCancelPipeTransfer, list, 0, 0x81));
    EXPECT_EQ(0, pins());
}

TEST_F(TransferMethods, CancelWakesAReaderBlockedInJava) {
    open();
    FakeByteArray array(std::vector<jbyte>(64));
    BackgroundCall read([&] { return call(usbReadBulkPipe, list, 0, 0x84, 64, 0, array.java()); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x84) == 1; }));
    EXPECT_EQ(0, call(usbCancelPipeTransfer, list, 0, 0x84));
    EXPECT_EQ(0, read.result());
    EXPECT_EQ(jni.pins, jni.releases) << "the array stays pinned during the call and is let go at its end";
}

TEST_F(TransferMethods, DescriptorAndEndpointQueriesNeedNoOpenDevice) {
    FakeByteArray device(std::vector<jbyte>(18));
    EXPECT_EQ(18, call(usbGetDeviceDescriptor, list, 0, 1, 0, 18, device.java()));
    EXPECT_EQ(0x5C, device.bytes[8]);
    FakeByteArray endpoints(std::vector<jbyte>(80));
    EXPECT_EQ(10, call(usbGetEndpointList, list, 0, endpoints.java()));
    EXPECT_EQ(1, endpoints.bytes[0]);
    FakeByteArray serial(std::vector<jbyte>(5));
    EXPECT_EQ(4, call(usbGetDeviceDescriptor, list, 0, 3, 3, 5, serial.java()));
    EXPECT_THAT(serial.bytes, ElementsAre('t', 'o', 'o', 'l', 0));
    EXPECT_EQ(3, pins());
    EXPECT_EQ(jni.pins, jni.releases);
    EXPECT_EQ(-114, call(usbGetDeviceDescriptor, list, 1, 1, 0, 18, device.java()));
    EXPECT_EQ(-114, call(usbGetEndpointList, list, 1, device.java()));
}

TEST_F(TransferMethods, CopyBackWhatAFailedReadLeft) {
    open();
    jni.pinsByCopy = true;
    bus.command(R"({"op":"endpoint","device":"tool","address":"0x84","set":{"limit":3}})");
    FakeByteArray array(std::vector<jbyte>(64, 99));
    EXPECT_EQ(-150, call(usbReadBulkPipe, list, 0, 0x84, 64, 50, array.java()));
    EXPECT_THAT(std::vector<jbyte>(array.bytes.begin(), array.bytes.begin() + 4), ElementsAre(0, 1, 2, 99));
    EXPECT_EQ(jni.pins, jni.releases);
    EXPECT_THAT(jni.modes, Each(0));
}

TEST_F(TransferMethods, GiveReadDataToAVirtualMachineThatPinsByCopy) {
    open();
    jni.pinsByCopy = true;
    FakeByteArray array(std::vector<jbyte>(8, 99));
    EXPECT_EQ(8, call(usbReadBulkPipe, list, 0, 0x83, 8, 1000, array.java()));
    EXPECT_EQ(counting(8), array.bytes);
}

TEST_F(TransferMethods, HandANullArrayOnAsNullBytesWithoutPinning) {
    open();
    EXPECT_THAT(callAllOpenDeviceMethods(nullptr),
                ElementsAre(-112, -113, -112, -113, -112, -113, -112, -113, -112, -113, -120, -5));
    EXPECT_EQ(-2, record(static_cast<uint32_t>(list), 0).lastResult);
    EXPECT_EQ(10, call(usbGetEndpointList, list, 0, static_cast<jbyteArray>(nullptr)));
    EXPECT_EQ(18, call(usbGetDeviceDescriptor, list, 0, 1, 0, 18, static_cast<jbyteArray>(nullptr)));
    EXPECT_EQ(0, pins());
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_F(TransferMethods, TakeAnArrayThatCannotBePinnedAsNullBytes) {
    open();
    jni.outOfMemory = true;
    FakeByteArray array(counting(16));
    EXPECT_EQ(-113, call(usbReadBulkPipe, list, 0, 0x83, 16, 50, array.java()));
    EXPECT_EQ(-112, call(usbWriteControlPipe, list, 0, 0, 50, array.java()));
    EXPECT_EQ(jni.pins, jni.releases);
}
