// The drop-in: binary object stores, companions, associations, packet sizes and places of devices.
#include "LibusbNewer.h"
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbCapabilities : public LibusbTest {
 protected:
    // A SuperSpeed device with that binary object store, in hexadecimal; without one its request stalls.
    libusb_device_handle* openWithStore(const std::string& store) {
        Json device = Json::parse(R"({"id": "fast", "vendorId": 1, "productId": 2, "serial": "FAST0001",
            "product": "Fast", "speed": "super", "interfaces": [
              {"number": 0, "extra": "080b000202020100", "endpoints": [
                {"address": "0x81", "type": "isochronous", "maxPacketSize": 5120, "interval": 1},
                {"address": "0x01", "maxPacketSize": 1024}]},
              {"number": 0, "alternate": 1, "endpoints": [{"address": "0x82", "maxPacketSize": 512}]},
              {"number": 3, "extra": "080b030103000001", "endpoints": [
                {"address": "0x83", "type": "interrupt", "maxPacketSize": 64}]}]})");
        if (!store.empty()) {
            device["control"] = {
                {{"requestType", 0x80}, {"request", 6}, {"value", 0x0F00}, {"reply", store}}};
        }
        bus.loadScenario(Json{{"devices", {device}}}.dump());
        return open("FAST0001");
    }
};

// Header of five capabilities of 83 bytes; USB 2.0 extension, SuperSpeed, container, platform,
// SuperSpeedPlus.
constexpr auto kStore =
    "050f580005"
    "07100202000000"
    "0a1003020e00010a0008"
    "14100400000102030405060708090a0b0c0d0e0f"
    "16100500a0a1a2a3a4a5a6a7a8a9aaabacadaeafbeef"
    "18100a00110000000121000030400a00b0400a0099";

TEST_F(LibusbCapabilities, AStoreIsReadAndItsCapabilitiesAreParsed) {
    auto* fast = openWithStore(kStore);
    libusb_bos_descriptor* store = nullptr;
    ASSERT_EQ(libusb_get_bos_descriptor(fast, &store), 0);
    EXPECT_EQ(store->wTotalLength, 88);
    // The last one is cut short, so that it is left out.
    ASSERT_EQ(store->bNumDeviceCaps, 4);
    auto** all = store->dev_capability;

    libusb_usb_2_0_extension_descriptor* extension = nullptr;
    ASSERT_EQ(libusb_get_usb_2_0_extension_descriptor(context, all[0], &extension), 0);
    EXPECT_EQ(extension->bmAttributes, 2U);
    libusb_free_usb_2_0_extension_descriptor(extension);
    EXPECT_EQ(libusb_get_usb_2_0_extension_descriptor(context, all[1], &extension),
              LIBUSB_ERROR_INVALID_PARAM);

    libusb_ss_usb_device_capability_descriptor* speeds = nullptr;
    ASSERT_EQ(libusb_get_ss_usb_device_capability_descriptor(context, all[1], &speeds), 0);
    EXPECT_EQ(speeds->wSpeedSupported, 0x000E);
    EXPECT_EQ(speeds->bU1DevExitLat, 0x0A);
    EXPECT_EQ(speeds->bU2DevExitLat, 0x0800);
    libusb_free_ss_usb_device_capability_descriptor(speeds);

    libusb_container_id_descriptor* container = nullptr;
    ASSERT_EQ(libusb_get_container_id_descriptor(context, all[2], &container), 0);
    EXPECT_EQ(container->ContainerID[15], 0x0F);
    libusb_free_container_id_descriptor(container);

    libusb_platform_descriptor* platform = nullptr;
    ASSERT_EQ(libusb_get_platform_descriptor(context, all[3], &platform), 0);
    EXPECT_EQ(platform->PlatformCapabilityUUID[0], 0xA0);
    const auto* data =
        reinterpret_cast<const std::uint8_t*>(platform) + LIBUSB_BT_PLATFORM_DESCRIPTOR_MIN_SIZE;
    EXPECT_EQ(Bytes(data, data + 2), (Bytes{0xBE, 0xEF}));
    libusb_free_platform_descriptor(platform);
    libusb_free_bos_descriptor(store);
}

TEST_F(LibusbCapabilities, TheSpeedsOfASublinkAreParsed) {
    auto* fast = openWithStore(
        "050f1900011410"
        "0a000100000011310000"
        "3040"
        "0a00"
        "b1c0"
        "0500");
    libusb_bos_descriptor* store = nullptr;
    ASSERT_EQ(libusb_get_bos_descriptor(fast, &store), 0);
    ASSERT_EQ(store->bNumDeviceCaps, 1);
    libusb_ssplus_usb_device_capability_descriptor* plus = nullptr;
    ASSERT_EQ(libusb_get_ssplus_usb_device_capability_descriptor(context, store->dev_capability[0], &plus),
              0);
    EXPECT_EQ(plus->numSublinkSpeedAttributes, 2);
    EXPECT_EQ(plus->numSublinkSpeedIDs, 1);
    EXPECT_EQ(plus->ssid, 1);
    EXPECT_EQ(plus->minRxLaneCount, 1);
    EXPECT_EQ(plus->minTxLaneCount, 3);
    const libusb_ssplus_sublink_attribute* sublink = plus->sublinkSpeedAttributes;
    EXPECT_EQ(sublink[0].exponent, LIBUSB_SSPLUS_ATTR_EXP_GBS);
    EXPECT_EQ(sublink[0].protocol, LIBUSB_SSPLUS_ATTR_PROT_SSPLUS);
    EXPECT_EQ(sublink[0].direction, LIBUSB_SSPLUS_ATTR_DIR_RX);
    EXPECT_EQ(sublink[0].mantissa, 10);
    EXPECT_EQ(sublink[1].ssid, 1);
    EXPECT_EQ(sublink[1].direction, LIBUSB_SSPLUS_ATTR_DIR_TX);
    EXPECT_EQ(sublink[1].mantissa, 5);
    libusb_free_ssplus_usb_device_capability_descriptor(plus);
    libusb_free_bos_descriptor(store);
}

TEST_F(LibusbCapabilities, AStoreThatIsMissingOrBrokenIsRefused) {
    libusb_bos_descriptor* store = nullptr;
    EXPECT_EQ(libusb_get_bos_descriptor(openWithStore(""), &store), LIBUSB_ERROR_PIPE);
    for (const auto* broken : {"050f0500", "050e050000", "040f050000", "050f08000102100a", "060f050000"}) {
        endContext();
        libusb_init(&context);
        EXPECT_EQ(libusb_get_bos_descriptor(openWithStore(broken), &store), LIBUSB_ERROR_IO) << broken;
    }
}

TEST_F(LibusbCapabilities, CompanionsFollowEndpointsOfFastDevices) {
    openWithStore("");
    libusb_config_descriptor* config = nullptr;
    ASSERT_EQ(libusb_get_active_config_descriptor(device("FAST0001"), &config), 0);
    libusb_ss_endpoint_companion_descriptor* companion = nullptr;
    const libusb_endpoint_descriptor* endpoint = config->interface[0].altsetting[0].endpoint;
    ASSERT_EQ(libusb_get_ss_endpoint_companion_descriptor(context, endpoint, &companion), 0);
    EXPECT_EQ(companion->bLength, 6);
    EXPECT_EQ(companion->wBytesPerInterval, 0);
    libusb_free_ss_endpoint_companion_descriptor(companion);

    libusb_endpoint_descriptor without{};
    EXPECT_EQ(libusb_get_ss_endpoint_companion_descriptor(context, &without, &companion),
              LIBUSB_ERROR_NOT_FOUND);
    const Bytes broken{1, 0x30, 0};
    without.extra = broken.data();
    without.extra_length = 3;
    EXPECT_EQ(libusb_get_ss_endpoint_companion_descriptor(context, &without, &companion), LIBUSB_ERROR_IO);
    const Bytes tooLong{9, 0x24, 0};
    without.extra = tooLong.data();
    EXPECT_EQ(libusb_get_ss_endpoint_companion_descriptor(context, &without, &companion),
              LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(companion, nullptr);
    libusb_free_config_descriptor(config);
}

TEST_F(LibusbCapabilities, AssociationsAreFoundInTheirConfiguration) {
    openWithStore("");
    libusb_interface_association_descriptor_array* array = nullptr;
    ASSERT_EQ(libusb_get_active_interface_association_descriptors(device("FAST0001"), &array), 0);
    ASSERT_EQ(array->length, 2);
    EXPECT_EQ(array->iad[0].bInterfaceCount, 2);
    EXPECT_EQ(array->iad[1].bFirstInterface, 3);
    libusb_free_interface_association_descriptors(array);
    ASSERT_EQ(libusb_get_interface_association_descriptors(device("FAST0001"), 0, &array), 0);
    EXPECT_EQ(array->length, 2);
    libusb_free_interface_association_descriptors(array);
    EXPECT_EQ(libusb_get_interface_association_descriptors(device("FAST0001"), 1, &array),
              LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbCapabilities, PacketSizesAreThoseOfTheActiveConfiguration) {
    libusb_device* echo = device("ECHO0001");
    EXPECT_EQ(libusb_get_max_packet_size(echo, 0x81), 64);
    EXPECT_EQ(libusb_get_max_packet_size(echo, 0x8F), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_get_max_iso_packet_size(echo, 0x81), 64);
    openWithStore("");
    libusb_device* fast = device("FAST0001");
    EXPECT_EQ(libusb_get_max_packet_size(fast, 0x81), 5120);
    EXPECT_EQ(libusb_get_max_iso_packet_size(fast, 0x81), 0);  // of its companion
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, 0, 1, 0x82), 0);
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, 0, 0, 0x82), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, 0, 2, 0x82), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbCapabilities, AnInterfaceIsCountedWhereItsPacketSizeIsAskedFor) {
    openWithStore("");
    libusb_device* fast = device("FAST0001");  // its second interface has the number 3
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, 1, 0, 0x83), 0);
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, 3, 0, 0x83), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_get_max_alt_packet_size(fast, -1, 0, 0x83), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbCapabilities, APlaceIsAPortWithoutHubs) {
    libusb_device* echo = device("ECHO0001");
    std::array<std::uint8_t, 7> ports{};
    EXPECT_EQ(libusb_get_port_numbers(echo, ports.data(), 7), 1);
    EXPECT_EQ(ports[0], libusb_get_port_number(echo));
    EXPECT_EQ(libusb_get_port_numbers(echo, ports.data(), 0), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_get_parent(echo), nullptr);
    EXPECT_EQ(libusb_get_session_data(echo), (static_cast<unsigned long>(libusb_get_bus_number(echo)) << 8U |
                                              libusb_get_device_address(echo)));
}

TEST_F(LibusbCapabilities, ADeviceIsOpenedByItsIds) {
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device("ECHO0001"), &descriptor);
    auto* handle = libusb_open_device_with_vid_pid(context, descriptor.idVendor, descriptor.idProduct);
    EXPECT_NE(handle, nullptr);
    libusb_close(handle);
    EXPECT_EQ(libusb_open_device_with_vid_pid(context, 9, 9), nullptr);
}

TEST_F(LibusbCapabilities, StringsAreReadWithoutAnOpenDevice) {
    libusb_device* echo = device("ECHO0001");
    std::array<char, 64> text{};
    bus.failCall("libusb_open", 1, LIBUSB_ERROR_ACCESS);
    EXPECT_EQ(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_SERIAL_NUMBER, text.data(), 64), 9);
    EXPECT_STREQ(text.data(), "ECHO0001");
    EXPECT_EQ(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_COUNT, text.data(), 64),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_PRODUCT, text.data(), 0),
              LIBUSB_ERROR_INVALID_PARAM);
}

// A text that was read once is known from then on, as from a host that reads it at the plug.
TEST_F(LibusbCapabilities, AStringIsKnownAfterItsDeviceHasLeft) {
    libusb_device* echo = libusb_ref_device(device("ECHO0001"));
    std::array<char, 64> text{};
    EXPECT_GT(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_SERIAL_NUMBER, text.data(), 64), 0);
    bus.unplug("echo");
    text = {};
    EXPECT_EQ(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_SERIAL_NUMBER, text.data(), 64), 9);
    EXPECT_STREQ(text.data(), "ECHO0001");
    EXPECT_EQ(libusb_get_device_string(echo, LIBUSB_DEVICE_STRING_PRODUCT, text.data(), 64), LIBUSB_ERROR_IO);
    EXPECT_STREQ(text.data(), "");
    libusb_unref_device(echo);
}

TEST_F(LibusbCapabilities, StringsAreUtf8AndCutBetweenCharacters) {
    bus.loadScenario(R"({"devices": [{"id": "a", "vendorId": 1, "productId": 2,
        "strings": {"2": {"hex": "0c0368003dd800de68003cd8"}},
        "product": "", "serial": "TEXT0001", "interfaces": [{"endpoints": []}]}]})");
    libusb_device* texts = device("TEXT0001");
    std::array<char, 64> text{};
    const auto product = LIBUSB_DEVICE_STRING_PRODUCT;
    EXPECT_EQ(libusb_get_device_string(texts, LIBUSB_DEVICE_STRING_MANUFACTURER, text.data(), 64),
              LIBUSB_ERROR_IO);
    EXPECT_EQ(libusb_get_device_string(texts, product, nullptr, 1), 7);
    EXPECT_EQ(libusb_get_device_string(texts, product, text.data(), 64), 7);
    EXPECT_STREQ(text.data(), "h😀h");  // half a character at the end is left out
    for (const int room : {2, 3, 4, 5}) {
        EXPECT_EQ(libusb_get_device_string(texts, product, text.data(), room), 7);
        EXPECT_STREQ(text.data(), "h") << room;
    }
    EXPECT_EQ(libusb_get_device_string(texts, product, text.data(), 6), 7);
    EXPECT_STREQ(text.data(), "h😀");
}

TEST_F(LibusbCapabilities, WhatNoSimulatedDeviceHasIsRefused) {
    auto* echo = open("ECHO0001");
    std::array<unsigned char, 1> endpoints{0x81};
    EXPECT_EQ(libusb_alloc_streams(echo, 2, endpoints.data(), 1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_free_streams(echo, endpoints.data(), 1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_endpoint_supports_raw_io(echo, 0x81), 0);
    EXPECT_EQ(libusb_endpoint_set_raw_io(echo, 0x81, 1), LIBUSB_ERROR_NOT_SUPPORTED);
    EXPECT_EQ(libusb_get_max_raw_io_transfer_size(echo, 0x81), LIBUSB_ERROR_NOT_SUPPORTED);
    libusb_device_handle* wrapped = nullptr;
    EXPECT_EQ(libusb_wrap_sys_device(context, 0, &wrapped), LIBUSB_ERROR_IO);

    AsyncTransfer transfer(echo, 0x81, Bytes(64));
    libusb_transfer_set_stream_id(transfer.raw, 7);
    EXPECT_EQ(libusb_transfer_get_stream_id(transfer.raw), 7U);

    unsigned char* memory = libusb_dev_mem_alloc(echo, 4096);
    ASSERT_NE(memory, nullptr);
    memory[4095] = 1;
    EXPECT_EQ(libusb_dev_mem_free(echo, memory, 4096), 0);
    bus.unplug("echo");
    EXPECT_EQ(libusb_dev_mem_alloc(echo, 4096), nullptr);
    EXPECT_EQ(libusb_alloc_streams(echo, 2, endpoints.data(), 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_endpoint_supports_raw_io(echo, 0x81), 0);
    EXPECT_EQ(libusb_get_max_raw_io_transfer_size(echo, 0x81), LIBUSB_ERROR_NOT_SUPPORTED);
}

TEST_F(LibusbCapabilities, ACallbackIsFoundByItsHandle) {
    int data = 0;
    libusb_hotplug_callback_handle handle = 0;
    const auto ignore = [](libusb_context*, libusb_device*, libusb_hotplug_event, void*) { return 0; };
    libusb_hotplug_register_callback(context, 1, 0, -1, -1, -1, ignore, &data, &handle);
    EXPECT_EQ(libusb_hotplug_get_user_data(context, handle), &data);
    EXPECT_EQ(libusb_hotplug_get_user_data(context, handle + 1), nullptr);
}

}  // namespace
}  // namespace simtest
