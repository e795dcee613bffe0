// The drop-in: open devices, claims, configurations.
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbHandles : public LibusbTest {
 protected:
    int configuration(libusb_device_handle* handle) {
        int value = -1;
        EXPECT_EQ(libusb_get_configuration(handle, &value), 0);
        return value;
    }
};

TEST_F(LibusbHandles, OpenOfAnUnpluggedDeviceIsNoDevice) {
    libusb_device* echo = device("ECHO0001");
    bus.unplug("echo");
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(echo, &handle), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(LibusbHandles, AHandleKnowsItsDevice) {
    EXPECT_EQ(libusb_get_device(open("ECHO0001")), device("ECHO0001"));
}

TEST_F(LibusbHandles, AnInterfaceIsClaimedByOneHandle) {
    auto* one = open("ECHO0001");
    auto* other = open("ECHO0001");
    EXPECT_EQ(libusb_claim_interface(one, 0), 0);
    EXPECT_EQ(libusb_claim_interface(one, 0), 0) << "again by the same handle";
    EXPECT_EQ(libusb_claim_interface(other, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(other, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(one, 0), 0);
    EXPECT_EQ(libusb_claim_interface(other, 0), 0);
}

TEST_F(LibusbHandles, ClosingLiftsTheClaims) {
    auto* one = open("ECHO0001");
    ASSERT_EQ(libusb_claim_interface(one, 0), 0);
    close(one);
    EXPECT_EQ(libusb_claim_interface(open("ECHO0001"), 0), 0);
}

TEST_F(LibusbHandles, AnUnknownInterfaceIsNotFound) {
    auto* handle = open("ECHO0001");
    EXPECT_EQ(libusb_claim_interface(handle, 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_claim_interface(handle, -1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_claim_interface(handle, 32), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_release_interface(handle, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(handle, 32), LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(LibusbHandles, AnUnconfiguredDeviceHasNoInterface) {
    auto* handle = open("ECHO0001");
    ASSERT_EQ(libusb_set_configuration(handle, -1), 0);
    EXPECT_EQ(configuration(handle), 0);
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbHandles, ConfigurationsAreSetAndTold) {
    auto* handle = open("DOUBLE01");
    EXPECT_EQ(configuration(handle), 1);
    EXPECT_EQ(libusb_set_configuration(handle, 2), 0);
    EXPECT_EQ(configuration(handle), 2);
    EXPECT_EQ(libusb_set_configuration(handle, 3), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_set_configuration(handle, 256), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(configuration(handle), 2);
}

TEST_F(LibusbHandles, NoConfigurationIsSetWhileAnInterfaceIsClaimed) {
    auto* one = open("DOUBLE01");
    auto* other = open("DOUBLE01");
    ASSERT_EQ(libusb_claim_interface(one, 0), 0);
    EXPECT_EQ(libusb_set_configuration(one, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_set_configuration(other, 1), LIBUSB_ERROR_BUSY);
    close(one);
    EXPECT_EQ(libusb_set_configuration(other, 1), 0);
}

TEST_F(LibusbHandles, AlternateSettingsNeedAClaim) {
    auto* handle = open("DOUBLE01");
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 1, 1), LIBUSB_ERROR_NOT_FOUND);
    ASSERT_EQ(libusb_claim_interface(handle, 1), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 1, 1), 0);
    EXPECT_EQ(bus.alternate(connectionOf("double"), 1), 1);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 1, 5), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 1, 300), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_release_interface(handle, 1), 0);
    EXPECT_EQ(bus.alternate(connectionOf("double"), 1), 0) << "the kernel puts it back";
}

TEST_F(LibusbHandles, NoKernelDriverHasAnInterface) {
    auto* handle = open("ECHO0001");
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_detach_kernel_driver(handle, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 99), LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(LibusbHandles, HaltsAreCleared) {
    auto* handle = open("ECHO0001");
    ASSERT_EQ(libusb_control_transfer(handle, 0x02, LIBUSB_REQUEST_SET_FEATURE, 0, 0x81, nullptr, 0, 0), 0);
    int moved = 0;
    unsigned char byte = 0;
    EXPECT_EQ(libusb_bulk_transfer(handle, 0x81, &byte, 1, &moved, 0), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(libusb_clear_halt(handle, 0x81), 0);
    EXPECT_EQ(libusb_clear_halt(handle, 0x85), LIBUSB_ERROR_NOT_FOUND);
    bus.feed("echo", 0x81, {7});
    EXPECT_EQ(libusb_bulk_transfer(handle, 0x81, &byte, 1, &moved, 0), 0);
    EXPECT_EQ(byte, 7);
}

TEST_F(LibusbHandles, AResetKeepsTheClaim) {
    auto* handle = open("ECHO0001");
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    EXPECT_EQ(libusb_reset_device(handle), 0);
    EXPECT_EQ(libusb_claim_interface(open("ECHO0001"), 0), LIBUSB_ERROR_BUSY);
}

TEST_F(LibusbHandles, EverythingOnAVanishedDeviceIsNoDevice) {
    auto* handle = open("ECHO0001");
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    bus.unplug("echo");
    int value = 0;
    unsigned char byte = 0;
    EXPECT_EQ(libusb_get_configuration(handle, &value), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_set_configuration(handle, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_release_interface(handle, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 0, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_clear_halt(handle, 0x81), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_reset_device(handle), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_attach_kernel_driver(handle, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_control_transfer(handle, 0x80, 6, 0x0100, 0, &byte, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    AsyncTransfer transfer(handle, 0x81, Bytes(64));
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(LibusbHandles, AScenarioCanMakeADeviceFail) {
    ask({{"op", "add"},
         {"device",
          {{"id", "sick"},
           {"serial", "SICK0001"},
           {"interfaces", {Json::object()}},
           {"hostFailures", {{"claim", -6}, {"setConfiguration", -9}, {"getConfiguration", -1}}}}}});
    auto* handle = open("SICK0001");
    int value = 0;
    EXPECT_EQ(libusb_claim_interface(handle, 0), -6);
    EXPECT_EQ(libusb_set_configuration(handle, 1), -9);
    EXPECT_EQ(libusb_get_configuration(handle, &value), -1);

    ask({{"op", "add"},
         {"device", {{"id", "shut"}, {"serial", "SHUT0001"}, {"hostFailures", {{"open", -3}}}}}});
    libusb_device_handle* none = nullptr;
    EXPECT_EQ(libusb_open(device("SHUT0001"), &none), LIBUSB_ERROR_ACCESS);
}

}  // namespace
}  // namespace simtest
