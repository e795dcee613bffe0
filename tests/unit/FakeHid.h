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

/// A HID platform in memory, which the library uses for the lifetime of this object. One device can be open
/// at a time. A call sees the values that were set before it.
class FakeHid {
 public:
    using Report = std::vector<uint8_t>;

    FakeHid();
    ~FakeHid();
    FakeHid(const FakeHid&) = delete;
    FakeHid& operator=(const FakeHid&) = delete;

    // Results of the operations.
    std::vector<HidDeviceInfo> devices;
    bool lists = true;
    HidOpenResult openResult = HidOpenResult::opened;
    bool startsInput = true;
    std::atomic<bool> reportsStop{false};    ///< the event source reports that it was stopped
    int32_t sendsBeforeFailure = INT32_MAX;  ///< output reports that succeed before one fails
    std::vector<uint8_t> configuration;  ///< returned by readConfigDescriptor; empty: configurationFailure
    int32_t configurationFailure = -131;
    /// Called at the entry of the operations, when set.
    std::function<void()> onList;
    std::function<void()> onStartInput;
    std::function<void()> onRunPeriod;
    std::function<void()> onSend;
    std::function<void()> onReadConfigDescriptor;

    /// Delivers one input report to the read thread as a platform does: in the buffer that was passed to
    /// startInput, as much as it holds. Returns when the library has taken it.
    void deliver(const Report& report);
    /// The same with a report that begins with this number, little endian, followed by zeroes.
    void deliverNumber(uint32_t number, size_t bytes = 64);

    // Requests of the library.
    std::vector<Report> sent() const;
    std::vector<int32_t> sendTimeouts() const;
    /// open, start, stop, stopCallersLoop, close, in the order of the calls.
    std::vector<std::string> calls() const;
    /// The last open: "VVVV:PPPP serial".
    std::string opened() const;
    /// The last readConfigDescriptor: ids and size, "VVVV:PPPP size".
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
