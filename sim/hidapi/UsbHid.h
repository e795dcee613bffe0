// The HID driver of a kernel for the devices on the bus: finds HID interfaces, and while one is open, polls
// its interrupt endpoint for input reports and passes each report to every opening.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Bus.h"

namespace sim {

/// One HID interface of a plugged device.
struct HidInterface {
    simbus::DeviceInfoPtr device;
    simbus::HidInterface at;
};

/// All interfaces that the HID driver has, of the plugged devices, oldest connection first.
std::vector<HidInterface> findHidInterfaces();

/// The report descriptor of an interface; empty when the device does not give it.
simbus::Bytes readReportDescriptor(const HidInterface& interface);

enum class ReportType : std::uint8_t { input = 1, output = 2, feature = 3 };

class UsbHid;
class HidOpening;

/// Call points of the HID driver, which count its operations and make them fail on every front: "hid open",
/// "hid write", and "hid report taken" for each input report that the program has received.
std::unique_ptr<HidOpening> openHid(const HidInterface& interface);  ///< null when a fault asks for it
void countReportTaken();

/// One opening of a HID interface. Not thread-safe.
class HidOpening {
 public:
    explicit HidOpening(std::shared_ptr<UsbHid> driver);
    ~HidOpening();
    HidOpening(const HidOpening&) = delete;
    HidOpening& operator=(const HidOpening&) = delete;

    /// Reads the next input report, at most `length` bytes of it. Returns their number, 0 on time-out, or -1
    /// when the device is gone and all its reports have been read.
    int read(std::uint8_t* data, std::size_t length, std::optional<std::chrono::milliseconds> timeout);
    /// Sends one output report to the OUT endpoint or, without one, to endpoint 0. Returns its length, or -1.
    int write(std::uint8_t number, const std::uint8_t* data, std::size_t length);
    /// Sends or requests a report on endpoint 0. The data includes the number unless it is 0. Returns the
    /// number of bytes, or -1.
    int setReport(ReportType type, std::uint8_t number, const std::uint8_t* data, std::size_t length);
    int getReport(ReportType type, std::uint8_t number, std::uint8_t* data, std::size_t length);
    const HidInterface& interface() const;

 private:
    friend class UsbHid;
    std::shared_ptr<UsbHid> driver_;
    std::deque<simbus::Bytes>
        reports_;  ///< guarded by the driver's mutex; drops reports when full, like a kernel's queue
};

/// The driver of one HID interface, shared by all its openings.
class UsbHid : public std::enable_shared_from_this<UsbHid> {
 public:
    explicit UsbHid(HidInterface interface) : interface_(std::move(interface)) {}

    /// Returns the driver of this interface; the first opening creates it.
    static std::shared_ptr<UsbHid> of(const HidInterface& interface);

    /// True when the device has left, or the driver was detached from the interface.
    bool isGone();
    void add(HidOpening& opening);
    void remove(HidOpening& opening);

 private:
    friend class HidOpening;
    /// Drops reports that the device sent while nobody had it open, as a kernel's driver does.
    void dropOldReports() const;
    void ask();       ///< submits the transfer for the next input report
    void answered();  ///< its completion

    const HidInterface interface_;
    std::mutex mutex_;
    std::condition_variable news_;
    std::vector<HidOpening*> openings_;
    bool gone_ = false;
    bool asking_ = false;  ///< the bus owns the transfer
    simbus::Transfer input_;
    simbus::Bytes inputData_;
    std::shared_ptr<UsbHid> self_;  ///< set while the bus owns the transfer
};

}  // namespace sim
