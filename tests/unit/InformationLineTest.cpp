// The text line that Java gets for a device.
#include <gmock/gmock.h>

#include <cstring>

#include "JniTest.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

/// The record that the change look-up returns; null calls the library's own look-up.
tagUSB_DEVICE_ACCESS_ENTRY* g_changed = nullptr;

class InformationLine : public JniTest {
 protected:
    void TearDown() override {
        g_changed = nullptr;
        JniTest::TearDown();
    }
    std::string changeLine() {
        call(usbGetChangeInfo, 0, 0);
        return jni.strings.back();
    }
    /// The line of the only device after `change` has modified its record.
    template <class Change>
    std::string lineAfter(Change change) {
        openSession({deviceJson("TOOL1")});
        const jint list = listOfVendor();
        change(record(static_cast<uint32_t>(list), 0));
        return infoLine(list, 0);
    }
};

}  // namespace

extern "C" {

tagUSB_DEVICE_ACCESS_ENTRY* __real__Z30LibUSB_GetDeviceFromChangeListjj(uint32_t handle, uint32_t index);
tagUSB_DEVICE_ACCESS_ENTRY* __wrap__Z30LibUSB_GetDeviceFromChangeListjj(uint32_t handle, uint32_t index);

tagUSB_DEVICE_ACCESS_ENTRY* __wrap__Z30LibUSB_GetDeviceFromChangeListjj(uint32_t handle, uint32_t index) {
    return g_changed != nullptr ? g_changed : __real__Z30LibUSB_GetDeviceFromChangeListjj(handle, index);
}
}

TEST_F(InformationLine, HasTwelveFieldsInOrder) {
    openSession({deviceJson("TOOL1")});
    EXPECT_EQ("1:=6A5C:=1001:=0100:=Talvane:=Echo Tool:=TOOL1:=x:=b:=0:=0:=end", infoLine(listOfVendor(), 0));
}

TEST_F(InformationLine, ShowsNumbersAsFourUpperCaseDigitsOfTheLowSixteenBits) {
    const std::string line = lineAfter([](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        entry.idVendor = 0x1ABCD;
        entry.idProduct = 0xF;
        entry.bcdDevice = 0x0100;
    });
    EXPECT_EQ("1:=ABCD:=000F:=0100:=Talvane:=Echo Tool:=TOOL1:=x:=b:=0:=0:=end", line);
}

TEST_F(InformationLine, HandsOverEachByteFrom0x80OnAsACharacter) {
    openSession({deviceJson("TOOL1", R"({"manufacturer":"Caf\u00e9 \u0080\u00ff"})")});
    EXPECT_THAT(infoLine(listOfVendor(), 0), HasSubstr(":=Caf\xC3\xA9 \xC2\x80\xC3\xBF:="));
}

TEST_F(InformationLine, SaysUForAClassThatIsNotDriven) {
    EXPECT_THAT(lineAfter([](auto& entry) { entry.isUnsupportedClass = 1; }), HasSubstr(":=x:=u:="));
}

TEST_F(InformationLine, SaysUForADeviceOfAForeignClass) {
    openSession({deviceJson("hub", R"({"deviceClass":9})")});
    EXPECT_THAT(infoLine(listOfVendor(), 0), HasSubstr(":=x:=u:="));
}

TEST_F(InformationLine, SaysHForAHidDevice) {
    EXPECT_THAT(lineAfter([](auto& entry) { entry.isHid = 1; }), HasSubstr(":=x:=h:="));
}

TEST_F(InformationLine, SaysHForAHidDeviceWhateverItsClass) {
    const std::string line = lineAfter([](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        entry.isHid = 1;
        entry.isUnsupportedClass = 1;
    });
    EXPECT_THAT(line, HasSubstr(":=x:=h:="));
}

TEST_F(InformationLine, ShowsAnEmptyTextAsNothingBetweenTwoSeparators) {
    EXPECT_THAT(lineAfter([](auto& entry) { entry.sManufacturer[0] = '\0'; }),
                HasSubstr(":=0100:=:=Echo Tool:="));
}

TEST_F(InformationLine, DoesNotEscapeASeparatorInAText) {
    EXPECT_THAT(lineAfter([](auto& entry) { std::strcpy(entry.sProduct, "a:=b"); }), HasSubstr(":=a:=b:="));
}

TEST_F(InformationLine, ShowsFamilyStatusAndInterfaceNumber) {
    const std::string line = lineAfter([](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        entry.familyStatus = 2;
        entry.interfaceNumber = 11;
    });
    EXPECT_THAT(line, EndsWith(":=2:=11:=end"));
}

TEST_F(InformationLine, ShowsPresenceOfTheSameRecord) {
    openSession({deviceJson("TOOL1")});
    const jint list = listOfVendor();
    unplugAndWait("TOOL1", static_cast<uint32_t>(list));
    call(usbUpdateDeviceList, list, 0);
    EXPECT_EQ("0:=6A5C:=1001:=0100:=Talvane:=Echo Tool:=TOOL1:=x:=b:=0:=0:=end", infoLine(list, 0));
    plugAndWait("TOOL1", static_cast<uint32_t>(list));
    call(usbUpdateDeviceList, list, 0);
    EXPECT_EQ("1:=6A5C:=1001:=0100:=Talvane:=Echo Tool:=TOOL1:=x:=b:=0:=0:=end", infoLine(list, 0));
}

TEST_F(InformationLine, IsCutAt511CharactersAndThenLacksItsEndMark) {
    // Unterminated texts, each running into the next: longer in total than those of any device.
    const std::string line = lineAfter([](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        std::memset(entry.sManufacturer, 'm', sizeof entry.sManufacturer);
        std::memset(entry.sProduct, 'p', sizeof entry.sProduct);
        std::memset(entry.sSerialNumber, 's', sizeof entry.sSerialNumber - 1);
    });
    EXPECT_EQ(511U, line.size());
    EXPECT_THAT(line, Not(EndsWith("end")));
}

TEST_F(InformationLine, IsEmptyWithoutARecord) {
    openSession({deviceJson("TOOL1")});
    EXPECT_EQ("", infoLine(0, 0));
    const jint list = listOfVendor();
    EXPECT_EQ("", infoLine(list, 1));
    EXPECT_EQ("", infoLine(list, -1));
    EXPECT_EQ("", infoLine(list + 1, 0));
}

TEST_F(InformationLine, LeavesTheRecordAsItIs) {
    openSession({deviceJson("TOOL1")});
    const jint list = listOfVendor();
    auto& entry = record(static_cast<uint32_t>(list), 0);
    entry.changeReported = 0;
    entry.reportedPresent = 0;
    infoLine(list, 0);
    EXPECT_EQ(0U, entry.changeReported);
    EXPECT_EQ(0U, entry.reportedPresent);
    EXPECT_EQ(1U, entry.isPresent);
}

TEST_F(InformationLine, OfAChangeIsAlwaysEmptyAndChangesNoRecord) {
    openSession({deviceJson("TOOL1")});
    const jint list = listOfVendor();
    unplugAndWait("TOOL1", static_cast<uint32_t>(list));
    call(usbUpdateDeviceList, list, 0);
    auto& entry = record(static_cast<uint32_t>(list), 0);
    entry.changeReported = 0;
    call(usbGetChangeInfo, list, 0);
    call(usbGetChangeInfo, list, 1);
    call(usbGetChangeInfo, 99, 0);
    EXPECT_THAT(jni.strings, ::testing::ElementsAre("", "", ""));
    EXPECT_EQ(0U, entry.changeReported);
    EXPECT_EQ(1U, entry.reportedPresent);
}

TEST_F(InformationLine, AChangeOfPresenceIsToldOnce) {
    openSession({deviceJson("TOOL1")});
    g_changed = &record(static_cast<uint32_t>(listOfVendor()), 0);
    g_changed->changeReported = 0;
    EXPECT_EQ("", changeLine()) << "nothing changed";
    EXPECT_EQ(0U, g_changed->changeReported);
    for (const uint32_t present : {0U, 1U}) {
        g_changed->isPresent = present;
        g_changed->changeReported = 0;
        EXPECT_EQ(std::to_string(present) + ":=6A5C:=1001:=0100:=Talvane:=Echo Tool:=TOOL1:=x:=b:=0:=0:=end",
                  changeLine());
        EXPECT_EQ(present, g_changed->reportedPresent);
        EXPECT_EQ(1U, g_changed->changeReported);
        EXPECT_EQ("", changeLine());
    }
}
