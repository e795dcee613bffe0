#include <gmock/gmock.h>
#include <libusb.h>

#include "ListTest.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"

namespace {

using ::testing::ElementsAre;

/// One device that a record holds, without counted references except those that a test takes.
class DeviceReferences : public ListTest {
 protected:
    void SetUp() override {
        ListTest::SetUp();
        startSession({deviceJson("one")});
        list_ = createSingleCallList(kVendor);
        entry_ = &record(list_, 0);
        bus.clearCalls();
    }
    void TearDown() override {
        g_refCount.clear();
        ListTest::TearDown();
    }

    libusb_device* device() { return entry_->pDevice; }
    std::string deviceText() { return pointerText(entry_->pDevice); }
    std::vector<std::string> take() {
        return debugLinesOf([this] { tlvn_libusb_ref_device(nullptr, device()); });
    }
    std::vector<std::string> drop() {
        return debugLinesOf([this] { tlvn_libusb_unref_device(entry_, device()); });
    }
    std::vector<std::string> dropAbsent() {
        return debugLinesOf([this] { unref_unplugged_devices(&listOf(list_)); });
    }

    uint32_t list_ = 0;
    tagUSB_DEVICE_ACCESS_ENTRY* entry_ = nullptr;
};

TEST_F(DeviceReferences, CountFromOneUpAndBackToNone) {
    EXPECT_EQ(-1, getRefCount(device()));
    EXPECT_THAT(take(),
                ElementsAre("[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + deviceText()));
    EXPECT_EQ(1, getRefCount(device()));
    EXPECT_THAT(take(),
                ElementsAre("[tlvn_libusb_ref_device] ref_count: before 1, after: 2, " + deviceText()));
    EXPECT_EQ(2, getRefCount(device()));
    EXPECT_THAT(drop(),
                ElementsAre("[tlvn_libusb_unref_device] ref_count: before: 2, after: 1, " + deviceText()));
    EXPECT_EQ(1, getRefCount(device()));
    EXPECT_THAT(drop(),
                ElementsAre("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + deviceText()));
    EXPECT_EQ(-1, getRefCount(device()));
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(DeviceReferences, EachOneIsAReferenceOfLibusb) {
    take();
    take();
    EXPECT_EQ(2U, callsOf("libusb_ref_device"));
    drop();
    EXPECT_EQ(1U, callsOf("libusb_unref_device"));
    drop();
    EXPECT_EQ(2U, callsOf("libusb_unref_device"));
}

TEST_F(DeviceReferences, OneTooManyDroppedIsLoggedWithTheSerialNumber) {
    EXPECT_THAT(drop(), ElementsAre("[tlvn_libusb_unref_device] device " + deviceText() + " not found: one"));
    EXPECT_EQ(0U, callsOf("libusb_unref_device"));
    EXPECT_TRUE(g_refCount.empty());
}

TEST_F(DeviceReferences, ACountBelowOneIsLeftInSilence) {
    for (const int32_t count : {0, -1}) {
        g_refCount[device()] = count;
        EXPECT_THAT(drop(), ElementsAre());
        EXPECT_EQ(count, getRefCount(device()));
    }
    EXPECT_EQ(0U, callsOf("libusb_unref_device"));
}

TEST_F(DeviceReferences, ACountOfZeroIsTakenUpAgain) {
    g_refCount[device()] = 0;
    EXPECT_THAT(take(),
                ElementsAre("[tlvn_libusb_ref_device] ref_count: before 0, after: 1, " + deviceText()));
    drop();
}

TEST_F(DeviceReferences, UnpluggedDevicesAreDumpedAndDropped) {
    take();
    entry_->isPresent = 0;
    const std::vector<std::string> lines = dropAbsent();
    ASSERT_EQ(14U, lines.size());
    EXPECT_EQ("[unref_unplugged_devices] unref device: " + deviceText(), lines.front());
    EXPECT_EQ("============================================================", lines[1]);
    EXPECT_EQ("  sSerialNumber = 'one'", lines[10]);
    EXPECT_EQ("[tlvn_libusb_unref_device] ref_count: before: 1, after: 0, " + deviceText(), lines.back());
    EXPECT_EQ(-1, getRefCount(device()));
}

TEST_F(DeviceReferences, AnUnpluggedDeviceWithACountOfZeroIsLogged) {
    g_refCount[device()] = 0;
    entry_->isPresent = 0;
    EXPECT_THAT(dropAbsent(),
                ElementsAre("[unref_unplugged_devices] unref device count already at 0: " + deviceText()));
}

TEST_F(DeviceReferences, AnUnpluggedDeviceWithoutACountIsLogged) {
    entry_->isPresent = 0;
    const std::string line = "[unref_unplugged_devices] no ref found for device: " + deviceText();
    EXPECT_THAT(dropAbsent(), ElementsAre(line));
    g_refCount[device()] = -2;
    EXPECT_THAT(dropAbsent(), ElementsAre(line));
    EXPECT_EQ(0U, callsOf("libusb_unref_device"));
}

TEST_F(DeviceReferences, PresentDevicesKeepTheirs) {
    take();
    EXPECT_THAT(dropAbsent(), ElementsAre());
    EXPECT_EQ(1, getRefCount(device()));
    drop();
}

TEST_F(DeviceReferences, NoListAndAnEmptyListHaveNothingToDrop) {
    EXPECT_THAT(debugLinesOf([] { unref_unplugged_devices(nullptr); }), ElementsAre());
    LibUSB_ReleaseDeviceList(list_);
    EXPECT_THAT(dropAbsent(), ElementsAre());
}

TEST_F(DeviceReferences, AHeldDeviceCostsOnePlainReference) {
    DeviceRecord other{};
    holdDevice(other, device());
    EXPECT_EQ(device(), other.pDevice);
    EXPECT_EQ(1U, callsOf("libusb_ref_device"));
    holdDevice(other, device());  // taken before the old reference is dropped
    EXPECT_EQ(2U, callsOf("libusb_ref_device"));
    EXPECT_EQ(1U, callsOf("libusb_unref_device"));
    holdDevice(other, nullptr);
    EXPECT_EQ(nullptr, other.pDevice);
    EXPECT_EQ(2U, callsOf("libusb_unref_device"));
    holdDevice(other, nullptr);
    EXPECT_EQ(2U, callsOf("libusb_unref_device"));
    EXPECT_TRUE(g_refCount.empty());
}

}  // namespace
