// What a kernel's HID driver does for the HID interfaces of the devices on the bus: finds them, and while
// somebody has one open, keeps asking its interrupt endpoint for input reports and hands each one to
// everybody who has it open.
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

// One HID interface of a plugged device.
struct HidInterface {
    simbus::DeviceInfoPtr device;
    simbus::HidInterface at;
};

// All HID interfaces of the plugged devices, oldest connection first.
std::vector<HidInterface> findHidInterfaces();

// A string descriptor of the device in its first language, as Unicode; nothing when there is none.
std::optional<std::wstring> readString(const simbus::DeviceInfo& device, std::uint8_t index);

class UsbHid;
class HidOpening;

// What a HID driver does is counted and can be made to fail under these names, whichever front asks for it:
// "hid open", "hid write", and "hid report taken" for each input report that the program has got.
std::unique_ptr<HidOpening> openHid(const HidInterface& interface);  // null when it is to fail
void countReportTaken();

// One opening of a HID interface. Not to be used by two threads at once.
class HidOpening {
 public:
    explicit HidOpening(std::shared_ptr<UsbHid> driver);
    ~HidOpening();
    HidOpening(const HidOpening&) = delete;
    HidOpening& operator=(const HidOpening&) = delete;

    // The next input report, at most `length` bytes of it: their number, 0 when none came in time, -1 when
    // the device is gone and all its reports are read.
    int read(std::uint8_t* data, std::size_t length, std::optional<std::chrono::milliseconds> timeout);
    // Sends one output report (without number): its length, or -1.
    int write(const std::uint8_t* data, std::size_t length);
    const HidInterface& interface() const;

 private:
    friend class UsbHid;
    std::shared_ptr<UsbHid> driver_;
    std::deque<simbus::Bytes>
        reports_;  // guarded by the driver's mutex; like a kernel's queue it drops when full
};

// The driver of one HID interface, shared by all openings of it.
class UsbHid : public std::enable_shared_from_this<UsbHid> {
 public:
    explicit UsbHid(HidInterface interface) : interface_(std::move(interface)) {}

    // The driver of this interface, made by its first opening.
    static std::shared_ptr<UsbHid> of(const HidInterface& interface);

    void add(HidOpening& opening);
    void remove(HidOpening& opening);

 private:
    friend class HidOpening;
    // Like a kernel's driver, which lets nobody hear what a device has said while nobody listened.
    void dropOldReports() const;
    void ask();       // submits the transfer for the next input report
    void answered();  // its completion

    const HidInterface interface_;
    std::mutex mutex_;
    std::condition_variable news_;
    std::vector<HidOpening*> openings_;
    bool gone_ = false;
    bool asking_ = false;  // the transfer is the bus's
    simbus::Transfer input_;
    simbus::Bytes inputData_;
    std::shared_ptr<UsbHid> self_;  // as long as the transfer is the bus's
};

}  // namespace sim
