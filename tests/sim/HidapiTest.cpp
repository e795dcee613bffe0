// The drop-in hidapi: its device list, and input and output reports.
#include <hidapi/hidapi.h>

#include "HidScenario.h"

namespace simtest {
namespace {

constexpr std::size_t kReport = 64;
constexpr unsigned kQueued = 63;  // unread reports that one opening queues

class Hidapi : public HidInterfaces {
 protected:
    void TearDown() override {
        bus.clearFaults();
        for (hid_device* device : devices_) {
            hid_close(device);
        }
        EXPECT_EQ(bus.tally("hid devices open"), 0);
        HidInterfaces::TearDown();
    }

    static std::string pathOf(const std::wstring& serial) {
        hid_device_info* all = hid_enumerate(0, 0);
        std::string path;
        for (const hid_device_info* each = all; each != nullptr; each = each->next) {
            path = each->serial_number == serial ? each->path : path;
        }
        hid_free_enumeration(all);
        return path;
    }

    hid_device* openHid(const std::wstring& serial = L"HIDT0001") {
        hid_device* device = hid_open_path(pathOf(serial).c_str());
        EXPECT_NE(device, nullptr);
        devices_.push_back(device);
        return device;
    }

    void closeHid(hid_device* device) {
        devices_.erase(std::find(devices_.begin(), devices_.end(), device));
        hid_close(device);
    }

    // Feeds reports with increasing first bytes; all openings have received them when this returns.
    void feed(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            bus.feed("hid", 0x81, counting(kReport, i));
        }
        EXPECT_TRUE(eventually([&] { return bus.pending("hid", 0x81) == 1; }));
    }

    // Reads one report; empty on time-out.
    static Bytes read(hid_device* device, std::chrono::milliseconds timeout = deadline) {
        Bytes report(kReport);
        const int count =
            hid_read_timeout(device, report.data(), report.size(), static_cast<int>(timeout.count()));
        EXPECT_GE(count, 0);
        report.resize(static_cast<std::size_t>(std::max(count, 0)));
        return report;
    }

    static int write(hid_device* device, const Bytes& numbered) {
        return hid_write(device, numbered.data(), numbered.size());
    }

    static std::vector<std::wstring> serials(unsigned short vendorId, unsigned short productId) {
        hid_device_info* all = hid_enumerate(vendorId, productId);
        std::vector<std::wstring> found;
        for (const hid_device_info* each = all; each != nullptr; each = each->next) {
            found.emplace_back(each->serial_number);
        }
        hid_free_enumeration(all);
        return found;
    }

 private:
    std::vector<hid_device*> devices_;
};

TEST_F(Hidapi, TheListTellsIdsTextsAndInterface) {
    hid_device_info* all = hid_enumerate(0, 0);
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(all->vendor_id, 0x6A5C);
    EXPECT_EQ(all->product_id, 0x1020);
    EXPECT_EQ(all->release_number, 0x0102);
    EXPECT_EQ(std::wstring(all->manufacturer_string), L"Talvane");
    EXPECT_EQ(std::wstring(all->product_string), L"HID Tool");
    EXPECT_EQ(std::wstring(all->serial_number), L"HIDT0001");
    EXPECT_EQ(all->interface_number, 0);
    EXPECT_EQ(all->bus_type, HID_API_BUS_USB);
    ASSERT_NE(all->next, nullptr);
    EXPECT_EQ(all->next->interface_number, 1);
    hid_free_enumeration(all);
}

TEST_F(Hidapi, TheListHoldsThoseWithTheIdsThatArePluggedIn) {
    EXPECT_THAT(serials(0, 0), testing::ElementsAre(L"HIDT0001", L"HIDT0002", L""))
        << "no serial number is empty";
    EXPECT_THAT(serials(0x6A5C, 0), testing::ElementsAre(L"HIDT0001", L"HIDT0002"));
    EXPECT_THAT(serials(0x6A5C, 0x1021), testing::ElementsAre(L"HIDT0002"));
    EXPECT_THAT(serials(0x6A5D, 0), testing::IsEmpty());
    bus.unplug("hid");
    EXPECT_THAT(serials(0x6A5C, 0), testing::ElementsAre(L"HIDT0002"));
}

TEST_F(Hidapi, ADeviceIsOpenedByItsPathWhileItIsThere) {
    const std::string path = pathOf(L"HIDT0001");
    EXPECT_EQ(hid_open_path("elsewhere"), nullptr);
    bus.unplug("hid");
    EXPECT_EQ(hid_open_path(path.c_str()), nullptr);
    bus.plug("hid");
    EXPECT_EQ(hid_open_path(path.c_str()), nullptr) << "plugged in anew it has another path";
    openHid();
}

TEST_F(Hidapi, TheReportNumberZeroIsCountedAndNotSent) {
    hid_device* hid = openHid();
    Bytes report = counting(kReport + 1);
    EXPECT_EQ(write(hid, report), 65);
    report.erase(report.begin());
    EXPECT_THAT(bus.received("hid", 0x01), testing::ElementsAre(report));
    EXPECT_EQ(read(hid), report);
}

TEST_F(Hidapi, AnotherReportNumberIsSent) {
    EXPECT_EQ(write(openHid(), {7, 1, 2}), 3);
    EXPECT_THAT(bus.received("hid", 0x01), testing::ElementsAre(Bytes{7, 1, 2}));
}

TEST_F(Hidapi, NothingToWriteIsRefused) {
    hid_device* hid = openHid();
    EXPECT_EQ(write(hid, {}), -1);
    EXPECT_EQ(hid_write(hid, nullptr, 5), -1);
}

TEST_F(Hidapi, WithoutAnOutEndpointReportsGoOverTheControlPipe) {
    ask({{"op", "change"},
         {"device", "plain"},
         {"set",
          {{"control",
            {{{"requestType", "0x21"},
              {"request", 9},
              {"value", "0x0200"},
              {"index", 1},
              {"store", "report"}},
             {{"requestType", "0xC0"}, {"request", 1}, {"fetch", "report"}}}}}}});
    bus.unplug("plain");
    bus.plug("plain");
    EXPECT_EQ(write(openHid(L"HIDT0002"), {0, 5, 6, 7}), 4);
    Bytes stored(8);
    ASSERT_EQ(libusb_control_transfer(open("HIDT0002"), 0xC0, 1, 0, 0, stored.data(), 8, 0), 3);
    EXPECT_EQ(stored, (Bytes{5, 6, 7, 0, 0, 0, 0, 0}));
}

TEST_F(Hidapi, ATimedReadEndsWithoutAReport) {
    hid_device* hid = openHid();
    EXPECT_EQ(read(hid, std::chrono::milliseconds(0)), Bytes());
    EXPECT_EQ(read(hid, std::chrono::milliseconds(1)), Bytes());
}

TEST_F(Hidapi, AReadWaitsForAReport) {
    hid_device* hid = openHid();
    auto timed = std::async(std::launch::async, [&] { return read(hid); });
    EXPECT_EQ(timed.wait_for(aWhile), std::future_status::timeout);
    feed(1);
    EXPECT_EQ(timed.get(), counting(kReport));
}

TEST_F(Hidapi, ABlockingReadWaitsWithoutEndAndANonBlockingOneNotAtAll) {
    hid_device* hid = openHid();
    Bytes report(kReport);
    auto blocking =
        std::async(std::launch::async, [&] { return hid_read(hid, report.data(), report.size()); });
    EXPECT_EQ(blocking.wait_for(aWhile), std::future_status::timeout);
    feed(1);
    EXPECT_EQ(blocking.get(), 64);
    EXPECT_EQ(hid_set_nonblocking(hid, 1), 0);
    EXPECT_EQ(hid_read(hid, report.data(), report.size()), 0);
}

TEST_F(Hidapi, AReportIsCutToTheBuffer) {
    hid_device* hid = openHid();
    feed(2);
    Bytes start(10);
    EXPECT_EQ(hid_read(hid, start.data(), start.size()), 10);
    EXPECT_EQ(start, counting(10));
    EXPECT_EQ(read(hid), counting(kReport, 1)) << "the rest is gone";
}

TEST_F(Hidapi, AFullQueueDropsTheNewest) {
    hid_device* hid = openHid();
    feed(100);
    for (unsigned i = 0; i < kQueued; ++i) {
        EXPECT_EQ(read(hid), counting(kReport, i));
    }
    EXPECT_EQ(read(hid, std::chrono::milliseconds(0)), Bytes());
}

TEST_F(Hidapi, EveryOpeningGetsEveryReport) {
    hid_device* one = openHid();
    hid_device* other = openHid();
    feed(2);
    for (hid_device* each : {one, other}) {
        EXPECT_EQ(read(each), counting(kReport, 0));
        EXPECT_EQ(read(each), counting(kReport, 1));
    }
    closeHid(one);
    feed(1);
    EXPECT_EQ(read(other), counting(kReport));
}

TEST_F(Hidapi, WhatTheDeviceSaidBeforeItsFirstOpeningIsNotHeard) {
    for (unsigned i = 0; i < 3; ++i) {
        bus.feed("hid", 0x81, counting(kReport, i));
    }
    hid_device* hid = openHid();
    EXPECT_EQ(read(hid, std::chrono::milliseconds(0)), Bytes());
    feed(1);
    openHid();
    EXPECT_EQ(read(hid), counting(kReport)) << "a second opening drops nothing";
}

TEST_F(Hidapi, ADeviceThatNeverFallsSilentCanBeOpened) {
    ask({{"op", "endpoint"},
         {"device", "hid"},
         {"address", "0x81"},
         {"set", {{"behaviour", "source"}, {"delayMs", 1}}}});
    EXPECT_EQ(read(openHid()).size(), kReport);
}

TEST_F(Hidapi, AnEndpointThatStallsGivesNoReports) {
    ask({{"op", "endpoint"}, {"device", "hid"}, {"address", "0x81"}, {"set", {{"behaviour", "stall"}}}});
    EXPECT_EQ(read(openHid(), std::chrono::milliseconds(1)), Bytes());
}

TEST_F(Hidapi, AfterAnUnplugTheQueueIsReadAndThenNothingMore) {
    hid_device* hid = openHid();
    feed(1);
    bus.unplug("hid");
    Bytes report(kReport);
    EXPECT_EQ(read(hid), counting(kReport));
    EXPECT_EQ(hid_read_timeout(hid, report.data(), report.size(), 1000), -1);
    EXPECT_EQ(write(hid, {0, 1}), -1);
    bus.plug("hid");
    EXPECT_EQ(write(hid, {0, 1}), -1) << "plugged in anew it is another device";
}

TEST_F(Hidapi, AnUnplugEndsAReadThatWaits) {
    hid_device* hid = openHid();
    Bytes report(kReport);
    auto waiting =
        std::async(std::launch::async, [&] { return hid_read(hid, report.data(), report.size()); });
    EXPECT_EQ(waiting.wait_for(aWhile), std::future_status::timeout);
    bus.unplug("hid");
    EXPECT_EQ(waiting.get(), -1);
}

TEST_F(Hidapi, TheDeviceIsAskedOnlyWhileItIsOpen) {
    EXPECT_EQ(bus.pending("hid", 0x81), 0U);
    hid_device* one = openHid();
    hid_device* other = openHid();
    EXPECT_EQ(bus.pending("hid", 0x81), 1U);
    closeHid(one);
    EXPECT_EQ(bus.pending("hid", 0x81), 1U);
    closeHid(other);
    EXPECT_TRUE(eventually([&] { return bus.pending("hid", 0x81) == 0; }));
    one = openHid();
    feed(1);
    EXPECT_EQ(read(one), counting(kReport));
    hid_close(nullptr);
}

TEST_F(Hidapi, FunctionsFailByName) {
    const std::string path = pathOf(L"HIDT0001");
    hid_device* hid = openHid();
    Bytes report(kReport);
    const std::vector<std::pair<std::string, std::function<bool()>>> functions = {
        {"hid_init", [&] { return hid_init() == -1; }},
        {"hid_exit", [&] { return hid_exit() == -1; }},
        {"hid_enumerate", [&] { return hid_enumerate(0, 0) == nullptr; }},
        {"hid_open_path", [&] { return hid_open_path(path.c_str()) == nullptr; }},
        {"hid_write",
         [&] {
             return write(hid, {0, 1}) == -1;
         }},
        {"hid_read_timeout", [&] { return hid_read_timeout(hid, report.data(), kReport, 0) == -1; }},
        {"hid_read", [&] { return hid_read(hid, report.data(), kReport) == -1; }},
        {"hid_set_nonblocking", [&] { return hid_set_nonblocking(hid, 1) == -1; }},
    };
    for (const auto& [name, failed] : functions) {
        bus.failCall(name, 1, -1);
        EXPECT_TRUE(failed()) << name;
    }
    EXPECT_THAT(bus.received("hid", 0x01), testing::IsEmpty());
}

}  // namespace
}  // namespace simtest
