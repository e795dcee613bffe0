// Closes and releases that could not complete in time, and the calls that complete them later.
#include <gtest/gtest.h>
#include <libusb.h>

#include "FakeHid.h"
#include "FakeMemory.h"
#include "IoTest.h"
#include "JniTest.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "hid/HIDAccess.h"

namespace {

class LateClose : public IoTest {
 protected:
    /// A read that `giveUp` could not end and that has ended since, so that nothing uses the record.
    template <class GiveUp>
    void leaveUnfinished(GiveUp giveUp) {
        openTool();
        const auto read = blockedRead();
        bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
        giveUp();
        EXPECT_FALSE(read->hasReturned());
        bus.clearFaults();
        libusb_cancel_transfer(&libusbTransfer(0x84));
        EXPECT_EQ(0, read->result());
        EXPECT_NE(nullptr, tool().hDevice);
    }
    void expectFinishedBy(const std::function<void()>& call) {
        const uint64_t closed = callsOf("libusb_close");
        const uint64_t freed = callsOf("libusb_free_transfer");
        call();
        EXPECT_EQ(closed + 1, callsOf("libusb_close"));
        EXPECT_EQ(freed + 32, callsOf("libusb_free_transfer"));
    }
};

}  // namespace

TEST_F(LateClose, OfAReleasedRecordFreesItsHandleAndDeletesIt) {
    leaveUnfinished([&] { LibUSB_ReleaseDeviceList(list()); });
    const DeletionCount records(sizeof(DeviceRecord));
    expectFinishedBy([&] { EXPECT_EQ(-109, LibUSB_CloseDevice(&tool())); });
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(LateClose, WaitsForATransferThatIsStillOut) {
    openTool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    LibUSB_ReleaseDeviceList(list());
    bus.clearFaults();
    expectFinishedBy([&] { EXPECT_EQ(-109, LibUSB_CloseDevice(&tool())); });
    EXPECT_EQ(0, read->result());
}

TEST_F(LateClose, OfARecordThatStaysInUseDeletesNothing) {
    openTool();
    auto& entry = tool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    LibUSB_ReleaseDeviceList(list());
    const DeletionCount records(sizeof(DeviceRecord));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&entry));
    EXPECT_EQ(0, DeletionCount::count());
    bus.clearFaults();
    libusb_cancel_transfer(&libusbTransfer(0x84));
    EXPECT_EQ(0, read->result());
    endRetiredRecords();
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(LateClose, IsDoneByAnOpenThatWantsTheInterface) {
    leaveUnfinished([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); });
    tagUSB_DEVICE_ACCESS_ENTRY& other = record(LibUSB_CreateDeviceList(context, 0xFFFFFFFF), 0);
    expectFinishedBy([&] { EXPECT_EQ(0, LibUSB_OpenDevice(&other)); });
    EXPECT_EQ(nullptr, tool().hDevice);
    EXPECT_EQ(0, LibUSB_CloseDevice(&other));
    LibUSB_ReleaseDeviceList(other.pDeviceList->handle);
}

TEST_F(LateClose, IsDoneByAReleaseOfAnyList) {
    leaveUnfinished([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); });
    const uint32_t other = createList({kSecondVendor});
    expectFinishedBy([&] { LibUSB_ReleaseDeviceList(other); });
}

TEST_F(LateClose, LeavesRecordsAloneThatAnUpdateHasClosed) {
    openTool();
    unplugAndWait("tool", list());
    plugAndWait("tool", list());
    ASSERT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
    ASSERT_EQ(0U, tool().isOpen);
    endRetiredRecords();
    EXPECT_NE(nullptr, tool().hDevice) << "its caller may have a thread on its way there";
}

class LateHidClose : public UsbTest {
 protected:
    void SetUp() override {
        UsbTest::SetUp();
        hid_.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "tool"}};
        startSession({deviceJson("tool")});
        tool_ = &openFirst();
        ASSERT_EQ(1, tool_->isHid);
        read_ = std::make_unique<BackgroundCall>(
            [this] { return LibUSB_ReadInterruptPipe(tool_, 0x81, 1, 60'000, &byte_); });
        ASSERT_TRUE(eventually([&] { return privateSide(*tool_).activeCalls.load() == 1; }));
    }
    tagUSB_DEVICE_ACCESS_ENTRY& tool() { return *tool_; }
    uint32_t list() const { return tool_->pDeviceList->handle; }
    void endRead() {
        pthread_mutex_lock(&tool_->pHIDAccess->mutex);
        tool_->pHIDAccess->writeIndex = 64;  // a report
        pthread_mutex_unlock(&tool_->pHIDAccess->mutex);
        EXPECT_EQ(1, read_->result());
    }
    void closeReleaseAndEndRead() {
        EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
        EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
        endRead();
    }

 private:
    FakeHid hid_;
    tagUSB_DEVICE_ACCESS_ENTRY* tool_ = nullptr;
    uint8_t byte_ = 0;
    std::unique_ptr<BackgroundCall> read_;
};

// The drop-in libusb reports every reference that is left at the end of the session.

TEST_F(LateHidClose, GivesBackTheDeviceOfARecordThatAReadOutlivedTheReleaseOf) {
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    endRead();
    const DeletionCount records(sizeof(DeviceRecord));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(LateHidClose, BeforeTheReleaseLeavesTheRecordToWhoeverComesNext) {
    closeReleaseAndEndRead();
    const DeletionCount records(sizeof(DeviceRecord));
    endRetiredRecords();
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(LateHidClose, DeletesTheHidAccessAsWell) {
    closeReleaseAndEndRead();
    const DeletionCount objects(sizeof(HIDAccessRecord));
    endRetiredRecords();
    EXPECT_EQ(1, DeletionCount::count());
}

class LateJavaClose : public JniTest {};

TEST_F(LateJavaClose, OfADeviceThatIsForgottenFreesItAllTheSame) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    FakeByteArray bytes(std::vector<jbyte>(64));
    BackgroundCall read([&] { return call(usbReadBulkPipe, list, 0, 0x84, 64, 0, bytes.java()); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x84) == 1; }));
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    EXPECT_EQ(0, call(usbCloseDevice, list, 0));
    EXPECT_EQ(0U, callsOf("libusb_free_transfer"));
    bus.clearFaults();
    bus.unplug("tool");
    EXPECT_EQ(0, read.result());
    EXPECT_EQ(-114, call(usbCloseDevice, list, 0));
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
}

TEST_F(LateJavaClose, LeavesARecordToTheCallThatHasLookedItUp) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    const DeletionCount records(sizeof(DeviceRecord));
    {
        const OpenDevice device = findOpenDevice(list, 0);
        EXPECT_EQ(0, call(usbCloseDevice, list, 0));
        EXPECT_EQ(0, call(usbReleaseDeviceList, list));
        EXPECT_EQ(0, DeletionCount::count());
        EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(device.record(), 0x81));
    }
    endRetiredRecords();
    EXPECT_EQ(1, DeletionCount::count());
}

TEST_F(LateJavaClose, RefusesTransfersWhileItWaits) {
    openSession({deviceJson("tool")});
    const jint list = listOfVendor();
    ASSERT_EQ(0, call(usbOpenDevice, list, 0));
    FakeByteArray bytes(std::vector<jbyte>(64));
    FakeByteArray others(std::vector<jbyte>(64));
    BackgroundCall read([&] { return call(usbReadBulkPipe, list, 0, 0x84, 64, 0, bytes.java()); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x84) == 1; }));
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    BackgroundCall close([&] { return call(usbCloseDevice, list, 0); });
    ASSERT_TRUE(eventually([&] { return callsOf("libusb_cancel_transfer") > 0; }));
    EXPECT_EQ(-114, call(usbReadBulkPipe, list, 0, 0x83, 64, 1000, others.java()));
    EXPECT_FALSE(close.hasReturned());
    bus.clearFaults();
    EXPECT_EQ(0, close.result());
    EXPECT_EQ(0, read.result());
}
