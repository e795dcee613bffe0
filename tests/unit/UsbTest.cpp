#include "UsbTest.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <thread>

#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/session/Session.h"

namespace {

constexpr const char* kDebugVariable = "ORVEXCOMM_DEBUG";

nlohmann::json endpoint(const char* address, const char* type, const char* behaviour) {
    return {{"address", address},
            {"type", type},
            {"maxPacketSize", 64},
            {"interval", 1},
            {"behaviour", behaviour}};
}

/// Redirects file descriptor 2 to a temporary file for its lifetime.
class StandardErrorCapture {
 public:
    StandardErrorCapture() : file_(std::tmpfile()), original_(dup(STDERR_FILENO)) {
        std::fflush(stderr);
        dup2(fileno(file_), STDERR_FILENO);
    }
    ~StandardErrorCapture() {
        restore();
        std::fclose(file_);
    }
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    std::string finish() {
        restore();
        std::string text;
        std::rewind(file_);
        for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_)) {
            text += static_cast<char>(c);
        }
        return text;
    }

 private:
    void restore() {
        if (original_ >= 0) {
            std::fflush(stderr);
            dup2(original_, STDERR_FILENO);
            close(original_);
            original_ = -1;
        }
    }

    std::FILE* file_;
    int original_;
};

}  // namespace

std::string deviceJson(const std::string& id, const std::string& overrides) {
    nlohmann::json interface = {{"number", 0}, {"class", 255}, {"subClass", 0}, {"protocol", 0}};
    interface["endpoints"] = {endpoint("0x01", "bulk", "echo"),      endpoint("0x81", "bulk", "echo"),
                              endpoint("0x02", "interrupt", "echo"), endpoint("0x82", "interrupt", "echo"),
                              endpoint("0x03", "bulk", "sink"),      endpoint("0x83", "bulk", "source"),
                              endpoint("0x04", "bulk", "silent"),    endpoint("0x84", "bulk", "silent"),
                              endpoint("0x05", "bulk", "stall"),     endpoint("0x85", "bulk", "stall")};
    nlohmann::json device = {{"id", id},
                             {"vendorId", kVendor},
                             {"productId", 0x1001},
                             {"bcdDevice", 0x0100},
                             {"deviceClass", 0},
                             {"manufacturer", "Talvane"},
                             {"product", "Echo Tool"},
                             {"serial", id},
                             {"interfaces", nlohmann::json::array({interface})}};
    device.merge_patch(nlohmann::json::parse(overrides));
    return device.dump();
}

std::string scenarioOf(const std::vector<std::string>& devices) {
    nlohmann::json scenario = {{"devices", nlohmann::json::array()}};
    for (const std::string& device : devices) {
        scenario["devices"].push_back(nlohmann::json::parse(device));
    }
    return scenario.dump();
}

std::string standardErrorOf(const std::function<void()>& action) {
    StandardErrorCapture capture;
    action();
    return capture.finish();
}

std::vector<std::string> debugLinesOf(const std::function<void()>& action) {
    setenv(kDebugVariable, "1", 1);
    std::istringstream text(standardErrorOf(action));
    unsetenv(kDebugVariable);
    static const std::regex stamp(R"(^(\[ORVEXCOMM_DBG\] \[ *\d+\.\d{6}\] |\[\d+\] ))");
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(std::regex_replace(line, stamp, ""));
    }
    return lines;
}

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void UsbTest::SetUp() {
    unsetenv(kDebugVariable);
    bus.loadScenario(scenarioOf({}));
    bus.clearFaults();
    bus.clearHooks();
    bus.clearViolations();
    bus.clearCalls();
}

void UsbTest::TearDown() {
    bus.clearFaults();
    bus.clearHooks();
    if (sessionRuns) {
        for (const uint32_t list : lists_) {
            LibUSB_ReleaseDeviceList(list);
        }
        endSession();
    }
    if (!expectsViolations) {
        for (const std::string& violation : bus.violations()) {
            ADD_FAILURE() << "the drop-in libusb reports: " << violation;
        }
    }
}

void UsbTest::startSession(std::initializer_list<std::string> devices) {
    bus.loadScenario(scenarioOf(devices));
    ASSERT_EQ(0, LibUSB_Initialize(&context));
    sessionRuns = true;
    bus.clearCalls();
}

void UsbTest::endSession() {
    EXPECT_EQ(0, LibUSB_Release(&context));
    sessionRuns = false;
}

uint32_t UsbTest::createList(const std::vector<int32_t>& vendorIds) {
    const uint32_t handle =
        LibUSB_CreateDeviceList2(context, static_cast<int32_t>(vendorIds.size()), vendorIds.data());
    lists_.push_back(handle);
    return handle;
}

tagUSB_DEVICE_ACCESS_ENTRY& UsbTest::record(uint32_t list, uint32_t index) {
    tagUSB_DEVICE_ACCESS_ENTRY* entry = LibUSB_GetDeviceFromIndex(list, index);
    if (entry == nullptr) {
        throw std::out_of_range("no record " + std::to_string(index) + " in list " + std::to_string(list));
    }
    return *entry;
}

tagUSB_DEVICE_ACCESS_ENTRY& UsbTest::openFirst() {
    tagUSB_DEVICE_ACCESS_ENTRY& entry = record(createList({kVendor}), 0);
    EXPECT_EQ(0, LibUSB_OpenDevice(&entry));
    return entry;
}

bool UsbTest::isFlagged(uint32_t list) {
    int32_t status = 0;
    return findDeviceList(list, status)->changePending.load();
}

void UsbTest::unplugAndWait(const std::string& id, uint32_t list) {
    bus.unplug(id);
    EXPECT_TRUE(eventually([&] { return isFlagged(list); }));
}

void UsbTest::plugAndWait(const std::string& id, uint32_t list) {
    bus.plug(id);
    EXPECT_TRUE(eventually([&] { return isFlagged(list); }));
}

uint64_t UsbTest::callsOf(const std::string& function) {
    const auto calls = bus.calls();
    const auto found = calls.find(function);
    return found == calls.end() ? 0 : found->second;
}
