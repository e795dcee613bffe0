#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Gate.h"
#include "hid/HidDeviceOperations.h"

/// A platform's HID interface in memory: while it lives, the library's HID operations come here. One device
/// can be open at a time. What a test sets before a call, that call sees.
class FakeHid {
 public:
    using Report = std::vector<uint8_t>;

    FakeHid();
    ~FakeHid();
    FakeHid(const FakeHid&) = delete;
    FakeHid& operator=(const FakeHid&) = delete;

    // What the operations answer.
    std::vector<HidDeviceInfo> devices;
    bool lists = true;
    HidOpenResult openResult = HidOpenResult::opened;
    bool startsInput = true;
    std::atomic<bool> reportsStop{false};    ///< the event source says that it was stopped
    int32_t sendsBeforeFailure = INT32_MAX;  ///< output reports taken before one fails
    std::vector<uint8_t> configuration;      ///< of readConfigDescriptor; empty: configurationFailure
    int32_t configurationFailure = -131;
    /// Run at the entries of the operations, when set.
    std::function<void()> onList;
    std::function<void()> onStartInput;
    std::function<void()> onRunPeriod;
    std::function<void()> onSend;
    std::function<void()> onReadConfigDescriptor;

    /// Hands one input report to the read thread as a platform does: into the buffer that startInput was
    /// given, as far as it goes. Returns when the library has taken it.
    void deliver(const Report& report);
    /// The same for a report that begins with this number, little-endian, followed by zeroes.
    void deliverNumber(uint32_t number, size_t bytes = 64);

    // What the library asked for.
    std::vector<Report> sent() const;
    std::vector<int32_t> sendTimeouts() const;
    /// open, start, stop, stopCallersLoop, close, as they came.
    std::vector<std::string> calls() const;
    /// Of the last open: "VVVV:PPPP serial".
    std::string opened() const;
    /// Of the last readConfigDescriptor: ids and size, "VVVV:PPPP size".
    std::string asked() const;
    int32_t inputLength() const;
    bool isOpen() const;

 private:
    static const HidDeviceOperations& table();
    void note(const std::string& call);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    uint8_t* buffer_ = nullptr;
    int32_t length_ = 0;
    HidReportCallback callback_ = nullptr;
    void* context_ = nullptr;
    const Report* waiting_ = nullptr;
    std::vector<Report> sent_;
    std::vector<int32_t> timeouts_;
    std::vector<std::string> calls_;
    std::string opened_;
    std::string asked_;
};
