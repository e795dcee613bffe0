// The drop-in hidapi: opening by ids, texts, feature and other reports on endpoint 0, descriptors, errors.
#include <hidapi/hidapi.h>

#include "HidScenario.h"

extern "C" {
int hid_get_report_descriptor(hid_device* device, unsigned char* data, size_t length);
int hid_send_output_report(hid_device* device, const unsigned char* data, size_t length);
const wchar_t* hid_read_error(hid_device* device);
}

namespace simtest {
namespace {

class HidapiWhole : public HidInterfaces {
 protected:
    void SetUp() override {
        HidInterfaces::SetUp();
        // Report 5 of each kind is stored and can be read back.
        Json rules = Json::array();
        for (const int kind : {1, 2, 3}) {
            const int value = kind * 256 + 5;
            const std::string slot = kind == 3 ? "feature" : "data";
            rules.push_back({{"requestType", 0x21}, {"request", 9}, {"value", value}, {"store", slot}});
            rules.push_back({{"requestType", 0xA1}, {"request", 1}, {"value", value}, {"fetch", slot}});
        }
        rules.push_back({{"requestType", 0xA1}, {"request", 1}, {"value", 0x0300}, {"reply", "0a0b"}});
        ask({{"op", "unplug"}, {"device", "hid"}});
        ask({{"op", "change"}, {"device", "hid"}, {"set", {{"control", rules}}}});
        ask({{"op", "plug"}, {"device", "hid"}});
        device = hid_open(0x6A5C, 0x1020, L"HIDT0001");
        ASSERT_NE(device, nullptr);
    }
    void TearDown() override {
        hid_close(device);
        HidInterfaces::TearDown();
    }

    hid_device* device = nullptr;
};

TEST_F(HidapiWhole, ADeviceIsOpenedByItsIdsAndSerialNumber) {
    hid_device* any = hid_open(0x6A5C, 0x1020, nullptr);
    EXPECT_NE(any, nullptr);
    hid_close(any);
    EXPECT_EQ(hid_open(0x6A5C, 0x1020, L"HIDT0009"), nullptr);
    EXPECT_STREQ(hid_error(nullptr), L"no device with these ids");
    EXPECT_EQ(hid_open(0x6A5C, 0x9999, nullptr), nullptr);
}

TEST_F(HidapiWhole, TextsAreCutToTheBuffer) {
    std::array<wchar_t, 32> text{};
    EXPECT_EQ(hid_get_manufacturer_string(device, text.data(), text.size()), 0);
    EXPECT_STREQ(text.data(), L"Talvane");
    EXPECT_EQ(hid_get_product_string(device, text.data(), 4), 0);
    EXPECT_STREQ(text.data(), L"HID");
    EXPECT_EQ(hid_get_serial_number_string(device, text.data(), text.size()), 0);
    EXPECT_STREQ(text.data(), L"HIDT0001");
    EXPECT_EQ(hid_get_product_string(device, text.data(), 0), -1);
    EXPECT_EQ(hid_get_indexed_string(device, 1, text.data(), text.size()), -1);
    EXPECT_STREQ(hid_error(device), L"hid_get_indexed_string: not supported by hidraw");
}

TEST_F(HidapiWhole, AnOpenDeviceTellsWhatTheListTells) {
    const hid_device_info* info = hid_get_device_info(device);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->product_id, 0x1020);
    EXPECT_EQ(info->next, nullptr);
    EXPECT_EQ(info, hid_get_device_info(device));
}

TEST_F(HidapiWhole, AnInterfaceIsListedOnceForEachOuterCollection) {
    // Keyboard with a nested collection, and a vendor's usage in four bytes; then a long item that is cut
    // off.
    const std::string descriptor = "05010906a1010507a10019e0c0c00b0200abffa101c0fe05";
    bus.loadScenario(Json{{"devices",
                           {{{"id", "two"},
                             {"vendorId", 1},
                             {"productId", 2},
                             {"interfaces",
                              {{{"hid", {{"report", descriptor}}},
                                {"endpoints", {{{"address", 0x81}, {"type", "interrupt"}}}}}}}}}}}
                         .dump());
    hid_device_info* all = hid_enumerate(0, 0);
    ASSERT_NE(all, nullptr);
    const auto usage = [](const hid_device_info* of) {
        return std::pair<int, int>(of->usage_page, of->usage);
    };
    EXPECT_EQ(usage(all), std::pair(1, 6));
    ASSERT_NE(all->next, nullptr);
    EXPECT_EQ(usage(all->next), std::pair(0xFFAB, 2));
    EXPECT_STREQ(all->path, all->next->path);
    EXPECT_EQ(all->next->next, nullptr);
    hid_device* opened = hid_open_path(all->path);
    ASSERT_NE(opened, nullptr);
    Bytes read(256);
    EXPECT_EQ(hid_get_report_descriptor(opened, read.data(), read.size()),
              static_cast<int>(descriptor.size() / 2));
    hid_close(opened);
    hid_free_enumeration(all);
}

TEST_F(HidapiWhole, WithoutABufferNothingIsRead) {
    EXPECT_EQ(hid_read(device, nullptr, 8), -1);
    EXPECT_STREQ(hid_read_error(device), L"no buffer for the report");
    Bytes data(8);
    EXPECT_EQ(hid_read_timeout(device, data.data(), 0, 10), -1);
    EXPECT_EQ(hid_get_report_descriptor(device, nullptr, 8), -1);
}

TEST_F(HidapiWhole, GivesTheVersionOfItsFunctions) {
    EXPECT_EQ(hid_version()->minor, 15);
    EXPECT_STREQ(hid_version_str(), "0.15.0");
}

TEST_F(HidapiWhole, FeatureReportsGoBothWays) {
    const Bytes sent{5, 1, 2, 3};
    EXPECT_EQ(hid_send_feature_report(device, sent.data(), sent.size()), 4);
    Bytes got{5, 0, 0, 0, 0, 0};
    EXPECT_EQ(hid_get_feature_report(device, got.data(), got.size()), 4);
    EXPECT_EQ(got, (Bytes{5, 1, 2, 3, 0, 0}));
    EXPECT_STREQ(hid_error(device), L"Success");
}

TEST_F(HidapiWhole, ANumberOfZeroStaysInTheBufferAndCounts) {
    Bytes got{0, 9, 9, 9};
    EXPECT_EQ(hid_get_feature_report(device, got.data(), got.size()), 3);
    EXPECT_EQ(got, (Bytes{0, 0x0A, 0x0B, 9}));
    const Bytes sent{0, 1, 2};
    EXPECT_EQ(hid_send_feature_report(device, sent.data(), sent.size()), 3);
}

TEST_F(HidapiWhole, InputAndOutputReportsUseEndpointZeroOnDemand) {
    const Bytes sent{5, 7, 8};
    EXPECT_EQ(hid_send_output_report(device, sent.data(), sent.size()), 3);
    Bytes got{5, 0, 0, 0};
    EXPECT_EQ(hid_get_input_report(device, got.data(), got.size()), 3);
    EXPECT_EQ(got, (Bytes{5, 7, 8, 0}));
    got[0] = 6;
    EXPECT_EQ(hid_get_input_report(device, got.data(), got.size()), -1);
    EXPECT_STREQ(hid_error(device), L"the device has refused the request");
    EXPECT_EQ(hid_get_feature_report(device, nullptr, 0), -1);
    EXPECT_EQ(hid_send_output_report(device, sent.data(), 0), -1);
}

TEST_F(HidapiWhole, TheReportDescriptorIsCutToTheBuffer) {
    Bytes descriptor(4096);
    EXPECT_EQ(hid_get_report_descriptor(device, descriptor.data(), descriptor.size()), 29);
    EXPECT_EQ(descriptor[0], 0x06);
    EXPECT_EQ(hid_get_report_descriptor(device, descriptor.data(), 5), 5);
}

TEST_F(HidapiWhole, AReadOfAGoneDeviceFailsWithItsError) {
    EXPECT_STREQ(hid_read_error(device), L"Success");
    bus.unplug("hid");
    Bytes report(64);
    EXPECT_EQ(hid_read_timeout(device, report.data(), report.size(), 30000), -1);
    EXPECT_STREQ(hid_read_error(device), L"the device is gone");
    EXPECT_EQ(hid_get_report_descriptor(device, report.data(), report.size()), -1);
}

TEST_F(HidapiWhole, ADetachedDriverLeavesTheInterfaceToLibusb) {
    auto* handle = open("HIDT0001");
    EXPECT_EQ(libusb_detach_kernel_driver(handle, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 0);
    EXPECT_EQ(libusb_detach_kernel_driver(handle, 0), LIBUSB_ERROR_NOT_FOUND);
    Bytes report(64);
    EXPECT_EQ(hid_read_timeout(device, report.data(), report.size(), 30000), -1);
    EXPECT_EQ(hid_open(0x6A5C, 0x1020, nullptr), nullptr);

    EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    int moved = 0;
    EXPECT_EQ(libusb_interrupt_transfer(handle, 0x01, report.data(), 64, &moved, 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(handle, 0), 0);

    EXPECT_EQ(libusb_attach_kernel_driver(handle, 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 1);
    hid_device* again = hid_open(0x6A5C, 0x1020, nullptr);
    ASSERT_NE(again, nullptr);
    bus.feed("hid", 0x81, counting(64, 9));
    // What the interrupt transfer sent is echoed first, unless it is dropped with the first opening.
    EXPECT_EQ(hid_read_timeout(again, report.data(), report.size(), 30000), 64);
    hid_close(again);
}

TEST_F(HidapiWhole, AClaimDetachesTheDriverOnRequestAndAReleaseAttachesIt) {
    auto* handle = open("HIDT0001");
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_set_auto_detach_kernel_driver(handle, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 0);
    EXPECT_EQ(libusb_release_interface(handle, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 1);
    EXPECT_EQ(libusb_set_auto_detach_kernel_driver(handle, 0), 0);
    EXPECT_EQ(libusb_claim_interface(handle, 0), LIBUSB_ERROR_BUSY);
}

}  // namespace
}  // namespace simtest
