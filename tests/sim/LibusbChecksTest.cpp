// The drop-in: its reports of wrong uses, none of which may crash.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LibusbChecks : public LibusbTest {
 protected:
    void expectViolation(const std::string& text) { EXPECT_THAT(takeViolations(), ElementsAre(text)); }
};

TEST_F(LibusbChecks, AContextAfterItsEnd) {
    libusb_context* ended = nullptr;
    ASSERT_EQ(libusb_init(&ended), 0);
    libusb_exit(ended);
    EXPECT_EQ(libusb_handle_events(ended), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_handle_events: context is used after libusb_exit");
    libusb_exit(ended);
    expectViolation("libusb_exit: context is used after libusb_exit");
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(ended, &list), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_get_device_list: context is used after libusb_exit");
    libusb_interrupt_event_handler(ended);
    expectViolation("libusb_interrupt_event_handler: context is used after libusb_exit");
}

TEST_F(LibusbChecks, AContextThatNeverWas) {
    int nothing = 0;
    EXPECT_EQ(libusb_handle_events(reinterpret_cast<libusb_context*>(&nothing)), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_handle_events: context was never handed out");
}

TEST_F(LibusbChecks, ANullContextIsTakenForTheFirstOne) {
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_free_device_list(list, 1);
    expectViolation(
        "libusb_get_device_list: null context, answered by the first one made, for want of a default one");
    endContext();
    EXPECT_EQ(libusb_get_device_list(nullptr, &list), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_get_device_list: null context, and no default one");
}

TEST_F(LibusbChecks, ADeviceAfterItWasFreed) {
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_device* freed = list[0];
    libusb_free_device_list(list, 1);
    bus.unplug("double");
    handleEvents();
    libusb_device_handle* handle = nullptr;
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(libusb_open(freed, &handle), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_open: device is used after it was freed");
    EXPECT_EQ(libusb_get_device_descriptor(freed, &descriptor), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_get_device_descriptor: device is used after it was freed");
    libusb_ref_device(freed);
    expectViolation("libusb_ref_device: device is used after it was freed");
}

TEST_F(LibusbChecks, ADeviceThatNeverWas) {
    int nothing = 0;
    EXPECT_EQ(libusb_get_bus_number(reinterpret_cast<libusb_device*>(&nothing)), 0);
    expectViolation("libusb_get_bus_number: device was never handed out");
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(nullptr, &handle), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_open: device is null");
}

TEST_F(LibusbChecks, MoreReferencesGivenBackThanTaken) {
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_device* first = list[0];
    libusb_free_device_list(list, 1);
    libusb_unref_device(first);
    expectViolation("libusb_unref_device: device DOUBLE01 has no reference of the caller to give back");
}

TEST_F(LibusbChecks, AReferenceKeptPastTheContextsEnd) {
    libusb_device* kept = device("ECHO0001");
    libusb_ref_device(kept);
    libusb_ref_device(kept);
    endContext();
    expectViolation("libusb_exit: device ECHO0001 has 2 reference(s) of the caller left");
    libusb_unref_device(kept);
    expectViolation("libusb_unref_device: device is used after it was freed");
}

TEST_F(LibusbChecks, AListFreedTwiceOrNever) {
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_free_device_list(list, 1);
    libusb_free_device_list(list, 1);
    expectViolation("libusb_free_device_list: list is freed twice");
    libusb_device* nothing = nullptr;
    libusb_free_device_list(&nothing, 1);
    expectViolation("libusb_free_device_list: list was never handed out");
    libusb_get_device_list(context, &list);
    for (int i = 0; i < 2; ++i) {
        libusb_unref_device(list[i]);
    }
    endContext();
    expectViolation("libusb_exit: a device list was not freed");
}

TEST_F(LibusbChecks, AHandleAfterItWasClosed) {
    auto* handle = open("ECHO0001");
    close(handle);
    int value = 0;
    EXPECT_EQ(libusb_get_configuration(handle, &value), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_get_configuration: handle is used after it was freed");
    libusb_close(handle);
    expectViolation("libusb_close: handle is used after it was freed");
    EXPECT_EQ(libusb_claim_interface(nullptr, 0), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_claim_interface: handle is null");
    AsyncTransfer transfer(handle, 0x81, Bytes(64));
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_submit_transfer: handle is used after it was freed");
    EXPECT_EQ(libusb_control_transfer(handle, 0x80, 8, 0, 0, nullptr, 0, 0), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_control_transfer: handle is used after it was freed");
    libusb_close(nullptr);
}

TEST_F(LibusbChecks, ATransferFreedTwice) {
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    libusb_free_transfer(transfer);
    libusb_free_transfer(transfer);
    expectViolation("libusb_free_transfer: transfer is used after it was freed");
    EXPECT_EQ(libusb_submit_transfer(transfer), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_submit_transfer: transfer is used after it was freed");
    libusb_free_transfer(nullptr);
}

TEST_F(LibusbChecks, ATransferThatNeverWas) {
    libusb_transfer transfer{};
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_cancel_transfer: transfer was never handed out");
}

TEST_F(LibusbChecks, ATransferFreedInFlight) {
    AsyncTransfer in(open("ECHO0001"), 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    in.free();
    expectViolation("libusb_free_transfer: transfer is in flight");
    EXPECT_EQ(bus.pending("echo", 0x81), 0U);
    handleEvents();
    EXPECT_EQ(in.callbacks, 0);
}

TEST_F(LibusbChecks, ATransferFreedBeforeItsCallback) {
    AsyncTransfer in(open("ECHO0001"), 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    bus.feed("echo", 0x81, counting(1));
    in.free();
    expectViolation("libusb_free_transfer: transfer is in flight");
    handleEvents();
    EXPECT_EQ(in.callbacks, 0);
}

TEST_F(LibusbChecks, AHandleClosedWithTransfersInFlight) {
    auto* echo = open("ECHO0001");
    AsyncTransfer waiting(echo, 0x81, Bytes(64));
    AsyncTransfer done(echo, 0x01, counting(1));
    ASSERT_EQ(waiting.submit(), 0);
    ASSERT_EQ(done.submit(), 0);
    close(echo);
    EXPECT_THAT(takeViolations(), ElementsAre("libusb_close: device ECHO0001 has 2 transfer(s) in flight"));
    handleEvents();
    EXPECT_EQ(waiting.callbacks, 0);
    EXPECT_EQ(done.callbacks, 0);
    EXPECT_EQ(waiting.raw->dev_handle, nullptr);
}

TEST_F(LibusbChecks, AContextEndedWithOpenHandlesAndTransfers) {
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init(&other), 0);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(other, &list), 2);
    libusb_device_handle* handle = nullptr;
    ASSERT_EQ(libusb_open(list[1], &handle), 0);
    libusb_free_device_list(list, 1);
    AsyncTransfer in(handle, 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    libusb_exit(other);
    EXPECT_THAT(takeViolations(), ElementsAre("libusb_exit: device ECHO0001 is still open",
                                              "libusb_exit: 1 transfer(s) still in flight"));
    EXPECT_EQ(bus.pending("echo", 0x81), 0U);
    libusb_close(handle);
    expectViolation("libusb_close: handle is used after it was freed");
}

TEST_F(LibusbChecks, AContextEndedUnderAHandler) {
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init(&other), 0);
    auto handler = std::async(std::launch::async, [&] { return libusb_handle_events(other); });
    ASSERT_TRUE(eventually([&] { return libusb_event_handler_active(other) != 0; }));
    libusb_exit(other);
    EXPECT_EQ(handler.get(), 0);
    expectViolation("libusb_exit: a thread still handles events or holds the events lock");
}

TEST_F(LibusbChecks, WaitingInsideACallback) {
    auto* echo = open("ECHO0001");
    AsyncTransfer out(echo, 0x01, counting(1));
    int handled = 0;
    int waited = 0;
    out.onCallback = [&] {
        handled = libusb_handle_events(context);
        unsigned char byte = 0;
        waited = libusb_control_transfer(echo, 0x80, 8, 0, 0, &byte, 1, 0);
        libusb_lock_event_waiters(context);
        libusb_unlock_event_waiters(context);
    };
    ASSERT_EQ(out.submit(), 0);
    handleEvents();
    EXPECT_EQ(handled, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(waited, LIBUSB_ERROR_BUSY);
    const std::string inside = ": called from inside a callback, where nothing may wait or handle events";
    EXPECT_THAT(
        takeViolations(),
        ElementsAre("libusb_handle_events" + inside, "libusb_control_transfer" + inside,
                    "libusb_lock_event_waiters" + inside,
                    "libusb_unlock_event_waiters: the calling thread does not hold the event waiters lock"));
}

TEST_F(LibusbChecks, HandlingEventsInsideAHotplugCallback) {
    static int result = 0;
    ASSERT_EQ(libusb_hotplug_register_callback(
                  context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, 0, -1, -1, -1,
                  [](libusb_context* ctx, libusb_device*, libusb_hotplug_event, void*) {
                      result = libusb_handle_events(ctx);
                      return 0;
                  },
                  nullptr, nullptr),
              0);
    bus.plug("away");
    handleEvents();
    EXPECT_EQ(result, LIBUSB_ERROR_BUSY);
    expectViolation(
        "libusb_handle_events: called from inside a callback, where nothing may wait or handle events");
}

TEST_F(LibusbChecks, LocksThatAreNotHeld) {
    libusb_unlock_events(context);
    expectViolation("libusb_unlock_events: the calling thread does not hold the events lock");
    libusb_unlock_event_waiters(context);
    expectViolation("libusb_unlock_event_waiters: the calling thread does not hold the event waiters lock");
    EXPECT_EQ(libusb_wait_for_event(context, nullptr), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_wait_for_event: the calling thread does not hold the event waiters lock");
}

TEST_F(LibusbChecks, ANegativeLength) {
    AsyncTransfer in(open("ECHO0001"), 0x81, Bytes(64));
    in.raw->length = -1;
    EXPECT_EQ(in.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expectViolation("libusb_submit_transfer: negative length");
}

TEST_F(LibusbChecks, AConfigDescriptorFreedTwiceOrNever) {
    libusb_config_descriptor* config = nullptr;
    const auto kept = bus.tally("config descriptors not freed");
    ASSERT_EQ(libusb_get_active_config_descriptor(device("ECHO0001"), &config), 0);
    EXPECT_EQ(bus.tally("config descriptors not freed"), kept + 1);
    libusb_free_config_descriptor(config);
    EXPECT_EQ(bus.tally("config descriptors not freed"), kept);
    libusb_free_config_descriptor(config);
    expectViolation("libusb_free_config_descriptor: descriptor is freed twice");
    libusb_config_descriptor nothing{};
    libusb_free_config_descriptor(&nothing);
    expectViolation("libusb_free_config_descriptor: descriptor was never handed out");
    libusb_free_config_descriptor(nullptr);
}

TEST_F(LibusbChecks, WhatIsLetPassIsNoViolation) {
    libusb_config_descriptor* config = nullptr;
    ASSERT_EQ(libusb_get_active_config_descriptor(device("ECHO0001"), &config), 0);
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    libusb_hotplug_deregister_callback(context, 12345);
    endContext();
    EXPECT_THAT(bus.violations(), IsEmpty());
    libusb_free_config_descriptor(config);
    libusb_free_transfer(transfer);
}

TEST_F(LibusbChecks, AnEmptyListThatIsNeverFreedIsOnlyCounted) {
    const auto before = bus.tally("empty device lists not freed");
    bus.unplug("echo");
    bus.unplug("double");
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context, &list), 0);
    endContext();
    EXPECT_EQ(bus.tally("empty device lists not freed"), before + 1);
    libusb_free_device_list(list, 1);
}

// Late uses are recognised only for a while; after that a freed object is unknown.
TEST_F(LibusbChecks, TheMemoryOfFreedObjectsIsBounded) {
    libusb_transfer* first = libusb_alloc_transfer(0);
    libusb_free_transfer(first);
    for (int i = 0; i < 1999; ++i) {
        libusb_free_transfer(libusb_alloc_transfer(0));
    }
    libusb_free_transfer(first);
    expectViolation("libusb_free_transfer: transfer is used after it was freed");
    libusb_free_transfer(libusb_alloc_transfer(0));
    libusb_free_transfer(first);
    expectViolation("libusb_free_transfer: transfer was never handed out");
}

}  // namespace
}  // namespace simtest
