// Measures HID reports with plain hidapi and with the library, each on separate devices (scenario.json):
// HIDECHO1 and HIDECHO2 echo reports, HIDSRC01 and HIDSRC02 send a report each millisecond, HIDSINK1 and
// HIDSINK2 accept reports.
#include <hidapi/hidapi.h>

#include <memory>
#include <string>

#include "Library.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "Timing.h"

namespace {

constexpr int kReportBytes = 64;
constexpr int32_t kOut = 0x01;
constexpr int32_t kIn = 0x81;

/// A HID device that is opened with plain hidapi.
class PlainHid {
 public:
    explicit PlainHid(const std::string& serialNumber) {
        const std::wstring wanted(serialNumber.begin(), serialNumber.end());
        hid_device_info* devices = hid_enumerate(kBenchVendor, 0);
        for (const hid_device_info* each = devices; each != nullptr && device_ == nullptr;
             each = each->next) {
            const bool found = each->serial_number != nullptr && wanted == each->serial_number;
            device_ = found ? hid_open_path(each->path) : nullptr;
        }
        hid_free_enumeration(devices);
        demand(device_ != nullptr, "the HID device cannot be opened through hidapi");
    }
    ~PlainHid() { hid_close(device_); }
    PlainHid(const PlainHid&) = delete;
    PlainHid& operator=(const PlainHid&) = delete;

    bool write() {
        const uint8_t report[1 + kReportBytes] = {0};  // the number of the only report stands before it
        return hid_write(device_, report, sizeof report) == static_cast<int>(sizeof report);
    }
    bool read() {
        uint8_t report[kReportBytes];
        return hid_read_timeout(device_, report, sizeof report, kBenchTimeoutMs) == kReportBytes;
    }

 private:
    hid_device* device_ = nullptr;
};

/// A HID device that is opened with the library.
class LibraryHid {
 public:
    LibraryHid(Library& library, const char* serialNumber) : device_(library.open(serialNumber)) {}
    ~LibraryHid() { LibUSB_CloseDevice(device_); }
    LibraryHid(const LibraryHid&) = delete;
    LibraryHid& operator=(const LibraryHid&) = delete;

    bool write() {
        uint8_t report[kReportBytes] = {};
        return LibUSB_WriteInterruptPipe(device_, kOut, kReportBytes, kBenchTimeoutMs, report) ==
               kReportBytes;
    }
    bool read() {
        uint8_t report[kReportBytes];
        return LibUSB_ReadInterruptPipe(device_, kIn, kReportBytes, kBenchTimeoutMs, report) == kReportBytes;
    }

 private:
    tagUSB_DEVICE_ACCESS_ENTRY* device_;
};

/// The device is open only while its benchmark runs: nothing reads from it before or after.
template <class Open, class Call>
void add(const char* name, Open open, Call call) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        auto device = open();
        EachCall each(state);
        for (auto _ : state) {
            if (!each.time([&] { return call(*device); })) {
                break;
            }
        }
    })->UseManualTime();
}

/// `open(serial number without its last digit)`.
template <class Open>
void addAll(const std::string& way, Open open) {
    add(("hid_report_in/" + way).c_str(), [=] { return open("HIDSRC0"); },
        [](auto& hid) { return hid.read(); });
    add(("hid_report_out/" + way).c_str(), [=] { return open("HIDSINK"); },
        [](auto& hid) { return hid.write(); });
    add(("hid_round_trip/" + way).c_str(), [=] { return open("HIDECHO"); },
        [](auto& hid) { return hid.write() && hid.read(); });
}

}  // namespace

int main(int argc, char** argv) {
    demand(hid_init() == 0, "hidapi does not start");
    Library library;
    addAll("hidapi", [](const std::string& serial) { return std::make_unique<PlainHid>(serial + "1"); });
    addAll("library", [&library](const std::string& serial) {
        return std::make_unique<LibraryHid>(library, (serial + "2").c_str());
    });
    return runBenchmarks(argc, argv);
}
