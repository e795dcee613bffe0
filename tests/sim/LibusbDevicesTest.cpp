// The drop-in: contexts, devices, references.
#include "SimTest.h"

namespace simtest {
namespace {

using testing::ElementsAre;
using LibusbDevices = LibusbTest;

TEST_F(LibusbDevices, VersionAndCapabilities) {
    const libusb_version* version = libusb_get_version();
    EXPECT_EQ(version->major, 1);
    EXPECT_EQ(version->minor, 0);
    EXPECT_EQ(version->micro, 30);
    EXPECT_EQ(version->nano, 12037);
    EXPECT_STREQ(version->rc, "");
    EXPECT_NE(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG), 0);
    EXPECT_EQ(libusb_has_capability(0x7777), 0);
    EXPECT_EQ(libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, 3), 0);
}

TEST_F(LibusbDevices, CodesHaveNamesAndTexts) {
    EXPECT_STREQ(libusb_error_name(-4), "LIBUSB_ERROR_NO_DEVICE");
    EXPECT_STREQ(libusb_error_name(-99), "LIBUSB_ERROR_OTHER");
    EXPECT_STREQ(libusb_error_name(2), "LIBUSB_TRANSFER_TIMED_OUT");
    EXPECT_STREQ(libusb_error_name(-50), "**UNKNOWN**");
    EXPECT_STREQ(libusb_strerror(-4), "No such device (it may have been disconnected)");
    EXPECT_STREQ(libusb_strerror(0), "Success");
    EXPECT_STREQ(libusb_strerror(-99), "Other error");
    EXPECT_STREQ(libusb_strerror(7), "Other error");
}

TEST_F(LibusbDevices, TheListHoldsPluggedDevicesNewestFirstAndEndsInNull) {
    EXPECT_THAT(serials(), ElementsAre("DOUBLE01", "ECHO0001"));
    bus.plug("away");
    EXPECT_THAT(serials(), ElementsAre("ECHO0003", "DOUBLE01", "ECHO0001"));
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context, &list), 3);
    EXPECT_EQ(list[3], nullptr);
    libusb_free_device_list(list, 1);
}

TEST_F(LibusbDevices, TheSameDeviceIsTheSameObject) {
    EXPECT_EQ(device("ECHO0001"), device("ECHO0001"));
    EXPECT_NE(device("ECHO0001"), device("DOUBLE01"));
}

TEST_F(LibusbDevices, AReplugIsANewObject) {
    libusb_device* before = device("ECHO0001");
    bus.unplug("echo");
    bus.plug("echo");
    EXPECT_NE(device("ECHO0001"), before);
}

TEST_F(LibusbDevices, DevicesTellTheirIdentity) {
    libusb_device_descriptor descriptor{};
    libusb_device* echo = device("ECHO0001");
    ASSERT_EQ(libusb_get_device_descriptor(echo, &descriptor), 0);
    EXPECT_EQ(descriptor.idVendor, 0x6A5C);
    EXPECT_EQ(descriptor.idProduct, 0x1001);
    EXPECT_EQ(descriptor.bcdDevice, 0x0102);
    EXPECT_EQ(descriptor.iSerialNumber, 3);
    EXPECT_EQ(descriptor.bNumConfigurations, 1);
    EXPECT_EQ(libusb_get_bus_number(echo), 1);
    EXPECT_EQ(libusb_get_device_address(echo), bus.devices().front()->address);
    EXPECT_EQ(libusb_get_port_number(echo), bus.devices().front()->ports.back());
    EXPECT_EQ(libusb_get_device_speed(echo), LIBUSB_SPEED_FULL);
}

TEST_F(LibusbDevices, ADeviceWithoutAWholeDescriptorIsNotListed) {
    ask({{"op", "add"}, {"device", {{"id", "stub"}, {"rawDeviceDescriptor", "1201"}}}});
    EXPECT_THAT(serials(), ElementsAre("DOUBLE01", "ECHO0001"));
}

TEST_F(LibusbDevices, AReferencedDeviceOutlivesItsUnplug) {
    libusb_device* echo = device("ECHO0001");
    bus.unplug("echo");
    handleEvents();
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(libusb_get_device_descriptor(echo, &descriptor), 0);
    EXPECT_EQ(descriptor.idVendor, 0x6A5C);
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(echo, &handle), LIBUSB_ERROR_NO_DEVICE);
}

// A device that the caller did not reference is kept by the library's own reference.
TEST_F(LibusbDevices, AnUnreferencedDeviceDiesWhenItsDepartureIsHandled) {
    libusb_device** list = nullptr;
    libusb_get_device_list(context, &list);
    libusb_device* unreferenced = list[0];
    libusb_free_device_list(list, 1);
    EXPECT_NE(libusb_get_device_address(unreferenced), 0);

    bus.unplug("double");
    EXPECT_NE(libusb_get_device_address(unreferenced), 0) << "its departure is not handled yet";
    handleEvents();
    EXPECT_EQ(libusb_get_device_address(unreferenced), 0);
    EXPECT_THAT(takeViolations(),
                ElementsAre("libusb_get_device_address: device is used after it was freed"));
}

TEST_F(LibusbDevices, AListFreedWithoutUnreferencingKeepsItsReferences) {
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context, &list), 2);
    libusb_device* first = list[0];
    libusb_device* second = list[1];
    libusb_free_device_list(list, 0);
    libusb_unref_device(first);
    libusb_unref_device(second);
    libusb_free_device_list(nullptr, 1);
    libusb_unref_device(nullptr);
}

TEST_F(LibusbDevices, AnEndedContextsAddressIsUsedAgain) {
    libusb_context* before = context;
    endContext();
    ASSERT_EQ(libusb_init(&context), 0);
    EXPECT_EQ(context, before);
    EXPECT_THAT(serials(), ElementsAre("DOUBLE01", "ECHO0001"));
}

TEST_F(LibusbDevices, ContextsHaveDevicesOfTheirOwn) {
    libusb_context* other = nullptr;
    ASSERT_EQ(libusb_init(&other), 0);
    EXPECT_NE(other, context);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(other, &list), 2);
    EXPECT_NE(list[1], device("ECHO0001"));
    EXPECT_EQ(libusb_get_device_address(list[1]), libusb_get_device_address(device("ECHO0001")));
    libusb_free_device_list(list, 1);
    libusb_exit(other);
}

TEST_F(LibusbDevices, TheDefaultContextIsSharedAndCounted) {
    ASSERT_EQ(libusb_init(nullptr), 0);
    ASSERT_EQ(libusb_init(nullptr), 0);
    libusb_exit(nullptr);
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_free_device_list(list, 1);
    libusb_exit(nullptr);
    EXPECT_THAT(takeViolations(), ElementsAre());
    libusb_exit(nullptr);
    EXPECT_THAT(takeViolations(), ElementsAre("libusb_exit: null context, and no default one"));
}

}  // namespace
}  // namespace simtest
