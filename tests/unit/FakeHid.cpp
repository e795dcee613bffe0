#include "FakeHid.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

FakeHid* g_fake = nullptr;

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
    g_fake = this;
    setHidOperations(table());
}

FakeHid::~FakeHid() {
    setHidOperations(platformHidOperations());
    g_fake = nullptr;
}

const HidDeviceOperations& FakeHid::table() {
    static const HidDeviceOperations operations = {
        [](std::vector<HidDeviceInfo>& found) {
            if (g_fake->onList) {
                g_fake->onList();
            }
            found = g_fake->devices;
            return g_fake->lists;
        },
        [](uint16_t vendorId, uint16_t productId, const char* serialNumber, HidDevice** device) {
            g_fake->note("open");
            const std::lock_guard lock(g_fake->mutex_);
            g_fake->opened_ = idsText(vendorId, productId) + " " + serialNumber;
            g_fake->open_ = g_fake->openResult == HidOpenResult::opened;
            *device = g_fake->open_ ? newDevice() : nullptr;
            return g_fake->openResult;
        },
        [](HidDevice*) {
            g_fake->note("close");
            const std::lock_guard lock(g_fake->mutex_);
            g_fake->open_ = false;
        },
        [](HidDevice*, uint8_t* buffer, int32_t length, HidReportCallback callback, void* context) {
            if (g_fake->onStartInput) {
                g_fake->onStartInput();
            }
            g_fake->note("start");
            const std::lock_guard lock(g_fake->mutex_);
            g_fake->buffer_ = buffer;
            g_fake->length_ = length;
            g_fake->callback_ = callback;
            g_fake->context_ = context;
            return g_fake->startsInput;
        },
        [](HidDevice*) {
            if (g_fake->onRunPeriod) {
                g_fake->onRunPeriod();
            }
            std::unique_lock lock(g_fake->mutex_);
            g_fake->changed_.wait_for(lock, std::chrono::milliseconds(1),
                                      [] { return g_fake->waiting_ != nullptr; });
            if (g_fake->waiting_ != nullptr) {
                const Report& report = *g_fake->waiting_;
                const auto count = std::min(report.size(), static_cast<size_t>(g_fake->length_));
                std::copy_n(report.begin(), count, g_fake->buffer_);
                g_fake->callback_(g_fake->context_, g_fake->buffer_, static_cast<int32_t>(count));
                g_fake->waiting_ = nullptr;
                g_fake->changed_.notify_all();
            }
            return !g_fake->reportsStop.load();
        },
        [](HidDevice*) { g_fake->note("stop"); },
        [] { g_fake->note("stopCallersLoop"); },
        [](HidDevice*, const uint8_t* report, int32_t length, int32_t timeoutMs) {
            if (g_fake->onSend) {
                g_fake->onSend();
            }
            const std::lock_guard lock(g_fake->mutex_);
            if (static_cast<int32_t>(g_fake->sent_.size()) >= g_fake->sendsBeforeFailure) {
                return false;
            }
            g_fake->sent_.emplace_back(report, report + length);
            g_fake->timeouts_.push_back(timeoutMs);
            return true;
        },
        [](uint16_t vendorId, uint16_t productId, uint8_t* buffer, int32_t size) {
            if (g_fake->onReadConfigDescriptor) {
                g_fake->onReadConfigDescriptor();
            }
            const std::lock_guard lock(g_fake->mutex_);
            g_fake->asked_ = idsText(vendorId, productId) + " " + std::to_string(size);
            const auto count = std::min(g_fake->configuration.size(), static_cast<size_t>(size));
            std::copy_n(g_fake->configuration.begin(), count, buffer);
            return g_fake->configuration.empty() ? g_fake->configurationFailure : static_cast<int32_t>(count);
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
