// The native methods that create, update, count and release device lists.
#include <gmock/gmock.h>

#include <numeric>

#include "JniTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

class DeviceListMethods : public JniTest {
 protected:
    /// The list behind a handle that Java was given.
    static const tagUSB_DEVICE_LIST& listOf(jint handle) {
        int32_t status = 0;
        return *findDeviceList(static_cast<uint32_t>(handle), status);
    }
};

}  // namespace

TEST_F(DeviceListMethods, CreatesAListOfSeveralVendors) {
    openSession({deviceJson("one"), deviceJson("two", R"({"vendorId":"0x1234"})"),
                 deviceJson("three", R"({"vendorId":"0x6A5D"})")});
    FakeIntArray ids({kVendor, kSecondVendor});
    const jint list = call(usbCreateDeviceList2, 0, ids.java());
    EXPECT_EQ(0, list);
    EXPECT_EQ(2, call(usbGetDeviceListCount, list));
    EXPECT_EQ(1, jni.pins);
    EXPECT_THAT(jni.modes, ElementsAre(0));
}

TEST_F(DeviceListMethods, AsksForTheLengthOfTheArrayBeforeItTakesTheElements) {
    openSession({deviceJson("one")});
    const std::vector<std::string> inOrder = {"GetArrayLength", "GetIntArrayElements",
                                              "ReleaseIntArrayElements"};
    jni.notesCalls = true;
    listOfVendor();
    EXPECT_EQ(inOrder, jni.calls);
    jni.calls.clear();
    FakeIntArray none({});
    call(usbCreateDeviceList2, 0, none.java());
    EXPECT_EQ(inOrder, jni.calls);
}

TEST_F(DeviceListMethods, DoesNotTouchTheArrayOfAnotherSession) {
    openSession({deviceJson("one")});
    FakeIntArray ids({kVendor});
    jni.notesCalls = true;
    EXPECT_EQ(-116, call(usbCreateDeviceList2, 1, ids.java()));
    EXPECT_THAT(jni.calls, ElementsAre());
}

TEST_F(DeviceListMethods, CreatesAListOfOneVendor) {
    openSession({deviceJson("one"), deviceJson("two", R"({"vendorId":"0x1234"})")});
    const jint list = call(usbCreateDeviceList, 0, 0x1234);
    EXPECT_EQ(1, call(usbGetDeviceListCount, list));
    EXPECT_EQ(0x1234U, record(static_cast<uint32_t>(list), 0).idVendor);
}

TEST_F(DeviceListMethods, CreatesAListOfAllVendors) {
    openSession({deviceJson("one"), deviceJson("two", R"({"vendorId":"0x1234"})")});
    EXPECT_EQ(2, call(usbGetDeviceListCount, call(usbCreateDeviceList, 0, -1)));
}

TEST_F(DeviceListMethods, HandsOutHandlesInOrderOfCreation) {
    openSession({});
    EXPECT_EQ(0, call(usbCreateDeviceList, 0, 1));
    EXPECT_EQ(1, listOfVendor());
    EXPECT_EQ(2, call(usbCreateDeviceList, 0, 3));
}

TEST_F(DeviceListMethods, AnEmptyArrayIsACountOfZero) {
    openSession({deviceJson("one")});
    FakeIntArray none({});
    const jint list = call(usbCreateDeviceList2, 0, none.java());
    EXPECT_EQ(0, listOf(list).vidCount);
    EXPECT_THAT(listOf(list).vidList, Each(-1));
    EXPECT_EQ(0, call(usbGetDeviceListCount, list));
    EXPECT_EQ(1, jni.pins);
    EXPECT_THAT(jni.modes, ElementsAre(0));
}

TEST_F(DeviceListMethods, OfTwentyIdsTheFirstSixteenCount) {
    openSession({});
    std::vector<jint> twenty(20);
    std::iota(twenty.begin(), twenty.end(), 100);
    FakeIntArray ids(twenty);
    const jint list = call(usbCreateDeviceList2, 0, ids.java());
    EXPECT_EQ(16, listOf(list).vidCount);
    EXPECT_THAT(listOf(list).vidList, ElementsAreArray(twenty.begin(), twenty.begin() + 16));
    EXPECT_EQ(twenty, ids.values);
}

TEST_F(DeviceListMethods, SixteenIdsAllCount) {
    openSession({});
    std::vector<jint> sixteen(16);
    std::iota(sixteen.begin(), sixteen.end(), 100);
    FakeIntArray ids(sixteen);
    EXPECT_THAT(listOf(call(usbCreateDeviceList2, 0, ids.java())).vidList, ElementsAreArray(sixteen));
}

TEST_F(DeviceListMethods, ANullArrayCountsAsNoIds) {
    openSession({deviceJson("one")});
    const jint list = call(usbCreateDeviceList2, 0, static_cast<jintArray>(nullptr));
    EXPECT_EQ(0, listOf(list).vidCount);
    EXPECT_EQ(0, jni.pins);
    EXPECT_EQ(0, jni.releases);
}

TEST_F(DeviceListMethods, AnArrayThatCannotBePinnedCountsAsNoIds) {
    openSession({deviceJson("one")});
    jni.outOfMemory = true;
    EXPECT_EQ(0, listOf(listOfVendor()).vidCount);
    EXPECT_EQ(0, jni.releases);
}

TEST_F(DeviceListMethods, AVirtualMachineThatPinsByCopyGetsTheCopyBack) {
    openSession({deviceJson("one")});
    jni.pinsByCopy = true;
    EXPECT_EQ(1, call(usbGetDeviceListCount, listOfVendor()));
    EXPECT_EQ(1, jni.releases);
}

TEST_F(DeviceListMethods, CountsNothingForAHandleThatNamesNoList) {
    openSession({deviceJson("one")});
    EXPECT_EQ(0, call(usbGetDeviceListCount, 7));
    EXPECT_EQ(0, call(usbGetDeviceListCount, -1));
    const jint list = listOfVendor();
    EXPECT_EQ(1, call(usbGetDeviceListCount, list));
    EXPECT_EQ(0, call(usbReleaseDeviceList, list));
    EXPECT_EQ(0, call(usbGetDeviceListCount, list));
}

TEST_F(DeviceListMethods, UpdatesAListAndPassesResultsOn) {
    openSession({deviceJson("one"), deviceJson("two", R"({"plugged":false})")});
    EXPECT_EQ(-104, call(usbUpdateDeviceList, 0, 0));
    EXPECT_EQ(-104, call(usbReleaseDeviceList, 0));
    const jint list = listOfVendor();
    EXPECT_EQ(-103, call(usbUpdateDeviceList, 7, 0));
    EXPECT_EQ(-103, call(usbReleaseDeviceList, 7));
    plugAndWait("two", static_cast<uint32_t>(list));
    EXPECT_EQ(0, call(usbUpdateDeviceList, list, 12345)) << "the second argument plays no part";
    EXPECT_EQ(2, call(usbGetDeviceListCount, list));
}

TEST_F(DeviceListMethods, AbsentDevicesCount) {
    openSession({deviceJson("one")});
    const jint list = listOfVendor();
    unplugAndWait("one", static_cast<uint32_t>(list));
    EXPECT_EQ(0, call(usbUpdateDeviceList, list, 0));
    EXPECT_EQ(1, call(usbGetDeviceListCount, list));
}
