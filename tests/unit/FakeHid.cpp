#include "FakeHid.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

FakeHid* g_fakeHid = nullptr;

/// A new device for every open; only its address matters.
HidDevice* newDevice() {
    static char places[1000];
    static size_t used = 0;
    return reinterpret_cast<HidDevice*>(&places[used++ % sizeof places]);
}

std::string idsText(uint16_t vendorId, uint16_t productId) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X:%04X", vendorId, productId);
    return text;
}

}  // namespace

FakeHid::FakeHid() {
    g_fakeHid = this;
    setHidOperations(table());
}

FakeHid::~FakeHid() {
    setHidOperations(platformHidOperations());
    g_fakeHid = nullptr;
}

const HidDeviceOperations& FakeHid::table() {
    static const HidDeviceOperations operations = {
        [](std::vector<HidDeviceInfo>& found) {
            if (g_fakeHid->onList) {
                g_fakeHid->onList();
            }
            found = g_fakeHid->devices;
            return g_fakeHid->lists;
        },
        [](uint16_t vendorId, uint16_t productId, const char* serialNumber, HidDevice** device) {
            g_fakeHid->note("open");
            const std::lock_guard lock(g_fakeHid->mutex_);
            g_fakeHid->opened_ = idsText(vendorId, productId) + " " + serialNumber;
            g_fakeHid->open_ = g_fakeHid->openResult == HidOpenResult::opened;
            *device = g_fakeHid->open_ ? newDevice() : nullptr;
            return g_fakeHid->openResult;
        },
        [](HidDevice*) {
            g_fakeHid->note("close");
            const std::lock_guard lock(g_fakeHid->mutex_);
            g_fakeHid->open_ = false;
        },
        [](HidDevice*, uint8_t* buffer, int32_t length, HidReportCallback callback, void* context) {
            if (g_fakeHid->onStartInput) {
                g_fakeHid->onStartInput();
            }
            g_fakeHid->note("start");
            const std::lock_guard lock(g_fakeHid->mutex_);
            g_fakeHid->buffer_ = buffer;
            g_fakeHid->length_ = length;
            g_fakeHid->callback_ = callback;
            g_fakeHid->context_ = context;
            return g_fakeHid->startsInput;
        },
        [](HidDevice*) {
            if (g_fakeHid->onRunPeriod) {
                g_fakeHid->onRunPeriod();
            }
            std::unique_lock lock(g_fakeHid->mutex_);
            g_fakeHid->changed_.wait_for(lock, std::chrono::milliseconds(1),
                                         [] { return g_fakeHid->waiting_ != nullptr; });
            if (g_fakeHid->waiting_ != nullptr) {
                const Report& report = *g_fakeHid->waiting_;
                const auto count = std::min(report.size(), static_cast<size_t>(g_fakeHid->length_));
                std::copy_n(report.begin(), count, g_fakeHid->buffer_);
                g_fakeHid->callback_(g_fakeHid->context_, g_fakeHid->buffer_, static_cast<int32_t>(count));
                g_fakeHid->waiting_ = nullptr;
                g_fakeHid->changed_.notify_all();
            }
            return !g_fakeHid->reportsStop.load();
        },
        [](HidDevice*) { g_fakeHid->note("stop"); },
        [] { g_fakeHid->note("stopCallersLoop"); },
        [](HidDevice*, const uint8_t* report, int32_t length, int32_t timeoutMs) {
            if (g_fakeHid->onSend) {
                g_fakeHid->onSend();
            }
            const std::lock_guard lock(g_fakeHid->mutex_);
            if (static_cast<int32_t>(g_fakeHid->sent_.size()) >= g_fakeHid->sendsBeforeFailure) {
                return false;
            }
            g_fakeHid->sent_.emplace_back(report, report + length);
            g_fakeHid->timeouts_.push_back(timeoutMs);
            return true;
        },
        [](uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size) {
            if (g_fakeHid->onReadConfigDescriptor) {
                g_fakeHid->onReadConfigDescriptor();
            }
            const std::lock_guard lock(g_fakeHid->mutex_);
            g_fakeHid->asked_ = idsText(vendorId, productId) + " " + std::to_string(size);
            const auto count = std::min(g_fakeHid->configuration.size(), static_cast<size_t>(size));
            std::copy_n(g_fakeHid->configuration.begin(), count, buffer);
            return g_fakeHid->configuration.empty() ? g_fakeHid->configurationFailure
                                                    : static_cast<int32_t>(count);
        }};
    return operations;
}

void FakeHid::deliver(const Report& report) {
    std::unique_lock lock(mutex_);
    waiting_ = &report;
    changed_.notify_all();
    changed_.wait(lock, [this] { return waiting_ == nullptr; });
}

void FakeHid::deliverNumber(uint32_t number, size_t bytes) {
    Report report(bytes);
    for (size_t i = 0; i < 4; ++i) {
        report[i] = static_cast<uint8_t>(number >> (8 * i));
    }
    deliver(report);
}

void FakeHid::note(const std::string& call) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
}

std::vector<FakeHid::Report> FakeHid::sent() const {
    const std::lock_guard lock(mutex_);
    return sent_;
}

std::vector<int32_t> FakeHid::sendTimeouts() const {
    const std::lock_guard lock(mutex_);
    return timeouts_;
}

std::vector<std::string> FakeHid::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::string FakeHid::opened() const {
    const std::lock_guard lock(mutex_);
    return opened_;
}

std::string FakeHid::asked() const {
    const std::lock_guard lock(mutex_);
    return asked_;
}

int32_t FakeHid::inputLength() const {
    const std::lock_guard lock(mutex_);
    return length_;
}

bool FakeHid::isOpen() const {
    const std::lock_guard lock(mutex_);
    return open_;
}
