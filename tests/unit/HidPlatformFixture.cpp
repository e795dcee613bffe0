#include <nlohmann/json.hpp>
#include <numeric>

#include "HidPlatformTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "hid/HidDeviceOperations.h"

std::string hidJson(const std::string& id, const std::string& overrides) {
    auto device = nlohmann::json::parse(deviceJson(id, R"({"interfaces":[{"hid":{},"endpoints":[
        {"address":"0x81","type":"interrupt","interval":1},
        {"address":"0x01","type":"interrupt","interval":1}]}]})"));
    device.merge_patch(nlohmann::json::parse(overrides));
    return device.dump();
}

void HidPlatformTest::TearDown() {
    if (tool_ != nullptr) {
        LibUSB_CloseDevice(tool_);
    }
    ListTest::TearDown();
    EXPECT_EQ(0, bus.tally("hid devices open"));
    EXPECT_EQ(0, bus.tally("I/O Kit objects in use"));
}

void HidPlatformTest::openTool(const std::string& overrides) {
    startSession({hidJson("tool", overrides)});
    tool_ = &record(createList({kVendor, kSecondVendor}), 0);
    ASSERT_EQ(1, tool_->isHid);
    ASSERT_EQ(0, LibUSB_OpenDevice(tool_));
}

void HidPlatformTest::expectPeriods(const std::string& function, std::chrono::microseconds period) {
    constexpr int kPeriods = 50;
    openTool();
    const auto begin = std::chrono::steady_clock::now();
    const uint64_t before = callsOf(function);
    ASSERT_TRUE(eventually([&] { return callsOf(function) > before + kPeriods; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, kPeriods * period);
}

int32_t HidPlatformTest::write(std::vector<uint8_t> bytes) {
    return LibUSB_WriteInterruptPipe(tool_, 1, static_cast<int32_t>(bytes.size()), 10'000, bytes.data());
}

int32_t HidPlatformTest::read(int32_t size, int32_t timeoutMs) {
    received.assign(static_cast<size_t>(size), 0);
    return LibUSB_ReadInterruptPipe(tool_, 1, size, timeoutMs, received.data());
}

int32_t HidPlatformTest::readConfiguration(uint8_t* buffer, int32_t size, uint16_t vendorId,
                                           uint16_t productId) {
    setHidUsbContext(context);
    const int32_t count = hidOperations().readConfigDescriptor(vendorId, productId, buffer, size);
    setHidUsbContext(nullptr);
    return count;
}

std::vector<int32_t> HidPlatformTest::marksOf(uint32_t list) {
    std::vector<int32_t> marks;
    for (const auto* entry : recordsOf(list)) {
        marks.push_back(entry->isHid);
    }
    return marks;
}

std::vector<uint8_t> HidPlatformTest::counting(size_t count) {
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}
