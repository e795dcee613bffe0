// The drop-in: every function can be made to fail.
#include "SimTest.h"

namespace simtest {
namespace {

using LibusbFaults = LibusbTest;

TEST_F(LibusbFaults, FunctionsFailByName) {
    auto* echo = open("ECHO0001");
    libusb_device* device = this->device("ECHO0001");
    int value = 0;
    timeval none{0, 0};
    unsigned char byte = 0;
    libusb_context* otherContext = nullptr;
    libusb_device** list = nullptr;
    libusb_device_handle* handle = nullptr;
    libusb_config_descriptor* config = nullptr;
    libusb_device_descriptor descriptor{};
    AsyncTransfer transfer(echo, 0x81, Bytes(64));
    const std::vector<std::pair<std::string, std::function<int()>>> functions = {
        {"libusb_init", [&] { return libusb_init(&otherContext); }},
        {"libusb_get_device_list", [&] { return static_cast<int>(libusb_get_device_list(context, &list)); }},
        {"libusb_get_device_descriptor", [&] { return libusb_get_device_descriptor(device, &descriptor); }},
        {"libusb_open", [&] { return libusb_open(device, &handle); }},
        {"libusb_get_configuration", [&] { return libusb_get_configuration(echo, &value); }},
        {"libusb_set_configuration", [&] { return libusb_set_configuration(echo, 1); }},
        {"libusb_claim_interface", [&] { return libusb_claim_interface(echo, 0); }},
        {"libusb_release_interface", [&] { return libusb_release_interface(echo, 0); }},
        {"libusb_set_interface_alt_setting", [&] { return libusb_set_interface_alt_setting(echo, 0, 0); }},
        {"libusb_clear_halt", [&] { return libusb_clear_halt(echo, 0x81); }},
        {"libusb_reset_device", [&] { return libusb_reset_device(echo); }},
        {"libusb_kernel_driver_active", [&] { return libusb_kernel_driver_active(echo, 0); }},
        {"libusb_attach_kernel_driver", [&] { return libusb_attach_kernel_driver(echo, 0); }},
        {"libusb_detach_kernel_driver", [&] { return libusb_detach_kernel_driver(echo, 0); }},
        {"libusb_get_active_config_descriptor",
         [&] { return libusb_get_active_config_descriptor(device, &config); }},
        {"libusb_get_config_descriptor", [&] { return libusb_get_config_descriptor(device, 0, &config); }},
        {"libusb_submit_transfer", [&] { return transfer.submit(); }},
        {"libusb_cancel_transfer", [&] { return libusb_cancel_transfer(transfer.raw); }},
        {"libusb_control_transfer",
         [&] { return libusb_control_transfer(echo, 0x80, 8, 0, 0, &byte, 1, 0); }},
        {"libusb_bulk_transfer", [&] { return libusb_bulk_transfer(echo, 0x01, &byte, 1, &value, 0); }},
        {"libusb_interrupt_transfer",
         [&] { return libusb_interrupt_transfer(echo, 0x02, &byte, 1, &value, 0); }},
        {"libusb_handle_events", [&] { return libusb_handle_events(context); }},
        {"libusb_handle_events_timeout", [&] { return libusb_handle_events_timeout(context, &none); }},
        {"libusb_handle_events_timeout_completed",
         [&] { return libusb_handle_events_timeout_completed(context, &none, nullptr); }},
        {"libusb_hotplug_register_callback",
         [&] {
             return libusb_hotplug_register_callback(context, 3, 0, -1, -1, -1, nullptr, nullptr, nullptr);
         }},
    };
    for (const auto& [name, function] : functions) {
        bus.failCall(name, 1, -12);
        EXPECT_EQ(function(), -12) << name;
    }
    bus.failCall("libusb_alloc_transfer", 1, -11);
    EXPECT_EQ(libusb_alloc_transfer(0), nullptr);
}

TEST_F(LibusbFaults, ATransferCompletesWithTheStatusGiven) {
    auto* echo = open("ECHO0001");
    bus.failCall("transfer:0x81", 2, LIBUSB_TRANSFER_ERROR);
    bus.failCall("transfer:0x01", 1, LIBUSB_TRANSFER_OVERFLOW);
    AsyncTransfer first(echo, 0x81, Bytes(64));
    AsyncTransfer second(echo, 0x81, Bytes(64));
    AsyncTransfer out(echo, 0x01, counting(5));
    ASSERT_EQ(first.submit(), 0);
    ASSERT_EQ(second.submit(), 0);
    ASSERT_EQ(out.submit(), 0);
    handleEvents();
    EXPECT_TRUE(first.pending());
    EXPECT_EQ(second.raw->status, LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(second.raw->actual_length, 0);
    EXPECT_EQ(out.raw->status, LIBUSB_TRANSFER_OVERFLOW);
    bus.feed("echo", 0x81, counting(1));
    handleEvents();
    EXPECT_EQ(first.raw->status, LIBUSB_TRANSFER_COMPLETED);
}

TEST_F(LibusbFaults, CallsAreCounted) {
    bus.clearCalls();
    open("ECHO0001");
    const auto calls = bus.calls();
    EXPECT_EQ(calls.at("libusb_open"), 1U);
    EXPECT_EQ(calls.at("libusb_get_device_list"), 1U);
    EXPECT_EQ(calls.count("libusb_close"), 0U);
}

TEST_F(LibusbFaults, AHookSeesTheWorldAsItWasBeforeTheCall) {
    libusb_device* echo = device("ECHO0001");
    bus.onCall("libusb_open", [&] { bus.unplug("echo"); });
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(echo, &handle), LIBUSB_ERROR_NO_DEVICE);
}

}  // namespace
}  // namespace simtest
