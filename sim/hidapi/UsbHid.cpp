#include "UsbHid.h"

#include <algorithm>
#include <map>

#include "HostRequests.h"

namespace sim {

namespace {

constexpr std::size_t kQueuedReports = 63;   // a kernel has 64 slots per opening and keeps one free
constexpr std::size_t kSmallestBuffer = 64;  // the least that a kernel requests

/// Drivers in use, by connection and interface number.
std::mutex driversMutex;
std::map<std::pair<simbus::ConnectionId, std::uint8_t>, std::weak_ptr<UsbHid>> drivers;

}  // namespace

std::vector<HidInterface> findHidInterfaces() {
    std::vector<HidInterface> all;
    for (const auto& device : simbus::Bus::instance().devices()) {
        for (const simbus::HidInterface& interface : device->hidInterfaces) {
            if (simbus::Bus::instance().hasDriver(device->connection, interface.number)) {
                all.push_back({device, interface});
            }
        }
    }
    return all;
}

simbus::Bytes readReportDescriptor(const HidInterface& interface) {
    constexpr std::uint16_t kLongestDescriptor = 4096;  // for which a kernel has room
    return simbus::readDescriptor(*interface.device, 0x81, 0x2200, interface.at.number, kLongestDescriptor);
}

std::unique_ptr<HidOpening> openHid(const HidInterface& interface) {
    static simbus::CallPoint callPoint("hid open");
    return callPoint.enter() ? nullptr : std::make_unique<HidOpening>(UsbHid::of(interface));
}

void countReportTaken() {
    static simbus::CallPoint callPoint("hid report taken");
    callPoint.enter();
}

HidOpening::HidOpening(std::shared_ptr<UsbHid> driver) : driver_(std::move(driver)) {
    driver_->add(*this);
}

HidOpening::~HidOpening() {
    driver_->remove(*this);
}

const HidInterface& HidOpening::interface() const {
    return driver_->interface_;
}

int HidOpening::read(std::uint8_t* data, std::size_t length,
                     std::optional<std::chrono::milliseconds> timeout) {
    std::unique_lock lock(driver_->mutex_);
    const auto somethingToSay = [&] { return !reports_.empty() || driver_->gone_; };
    if (timeout.has_value()) {
        driver_->news_.wait_for(lock, *timeout, somethingToSay);
    } else {
        driver_->news_.wait(lock, somethingToSay);
    }
    if (reports_.empty()) {
        return driver_->gone_ ? -1 : 0;
    }
    const simbus::Bytes report = std::move(reports_.front());
    reports_.pop_front();
    const std::size_t count = std::min(length, report.size());
    std::copy_n(report.begin(), count, data);
    return static_cast<int>(count);
}

int HidOpening::write(std::uint8_t number, const std::uint8_t* data, std::size_t length) {
    static simbus::CallPoint callPoint("hid write");
    if (callPoint.enter()) {
        return -1;
    }
    const HidInterface& to = interface();
    if (!to.at.outEndpoint.has_value()) {
        return setReport(ReportType::output, number, data, length);
    }
    simbus::Bytes report(data, data + length);
    simbus::Transfer transfer;
    transfer.data = report.data();
    transfer.length = report.size();
    transfer.endpoint = *to.at.outEndpoint;
    return simbus::runTransfer(to.device->connection, transfer) ? static_cast<int>(transfer.actual) : -1;
}

namespace {

/// A request of the HID class for one report.
simbus::Setup reportSetup(bool in, ReportType type, std::uint8_t number, std::uint8_t interfaceNumber,
                          std::size_t length) {
    constexpr std::uint8_t kFromInterface = 0xA1;
    constexpr std::uint8_t kToInterface = 0x21;
    constexpr std::uint8_t kGetReport = 1;
    constexpr std::uint8_t kSetReport = 9;
    const auto value = static_cast<std::uint16_t>(static_cast<unsigned>(type) << 8U | number);
    return {in ? kFromInterface : kToInterface, in ? kGetReport : kSetReport, value, interfaceNumber,
            static_cast<std::uint16_t>(length)};
}

}  // namespace

int HidOpening::setReport(ReportType type, std::uint8_t number, const std::uint8_t* data,
                          std::size_t length) {
    const HidInterface& to = interface();
    simbus::Bytes report(data, data + length);
    simbus::Transfer transfer;
    transfer.data = report.data();
    transfer.length = report.size();
    transfer.setup = reportSetup(false, type, number, to.at.number, length);
    return simbus::runTransfer(to.device->connection, transfer) ? static_cast<int>(transfer.actual) : -1;
}

int HidOpening::getReport(ReportType type, std::uint8_t number, std::uint8_t* data, std::size_t length) {
    const HidInterface& from = interface();
    simbus::Transfer transfer;
    transfer.data = data;
    transfer.length = length;
    transfer.setup = reportSetup(true, type, number, from.at.number, length);
    return simbus::runTransfer(from.device->connection, transfer) ? static_cast<int>(transfer.actual) : -1;
}

std::shared_ptr<UsbHid> UsbHid::of(const HidInterface& interface) {
    const std::lock_guard lock(driversMutex);
    auto& entry = drivers[{interface.device->connection, interface.at.number}];
    auto driver = entry.lock();
    if (driver == nullptr || driver->isGone()) {
        driver = std::make_shared<UsbHid>(interface);
        entry = driver;
    }
    return driver;
}

bool UsbHid::isGone() {
    const std::lock_guard lock(mutex_);
    return gone_;
}

void UsbHid::add(HidOpening& opening) {
    const bool first = [&] {
        const std::lock_guard lock(mutex_);
        return openings_.empty();
    }();
    if (first) {
        dropOldReports();
    }
    {
        const std::lock_guard lock(mutex_);
        openings_.push_back(&opening);
    }
    ask();
}

void UsbHid::dropOldReports() const {
    simbus::Bytes report(interface_.at.inputBytes);
    simbus::Transfer transfer;
    transfer.endpoint = interface_.at.inEndpoint;
    transfer.data = report.data();
    transfer.length = report.size();
    constexpr int kMostDropped = 4096;  // a source never runs empty
    for (int dropped = 0;
         dropped < kMostDropped &&
         simbus::runTransfer(interface_.device->connection, transfer, std::chrono::milliseconds(0));
         ++dropped) {
    }
}

void UsbHid::remove(HidOpening& opening) {
    bool last = false;
    {
        const std::lock_guard lock(mutex_);
        openings_.erase(std::find(openings_.begin(), openings_.end(), &opening));
        last = openings_.empty() && asking_;
    }
    if (last) {
        simbus::Bus::instance().cancel(input_);
    }
}

void UsbHid::ask() {
    {
        const std::lock_guard lock(mutex_);
        if (asking_ || gone_ || openings_.empty()) {
            return;
        }
        asking_ = true;
        self_ = shared_from_this();
        inputData_.resize(std::max(interface_.at.inputBytes, kSmallestBuffer));
        input_.endpoint = interface_.at.inEndpoint;
        input_.data = inputData_.data();
        input_.length = inputData_.size();
        input_.done = [this] { answered(); };
    }
    if (simbus::Bus::instance().submit(interface_.device->connection, input_) !=
        simbus::Submitted::accepted) {
        input_.status = simbus::Status::noDevice;
        answered();
    }
}

void UsbHid::answered() {
    std::shared_ptr<UsbHid> self;
    {
        const std::lock_guard lock(mutex_);
        self = std::move(self_);
        self_.reset();
        asking_ = false;
        gone_ = input_.status == simbus::Status::noDevice;
        if (input_.status == simbus::Status::completed) {
            const simbus::Bytes report(inputData_.begin(),
                                       inputData_.begin() + static_cast<std::ptrdiff_t>(input_.actual));
            for (HidOpening* opening : openings_) {
                if (opening->reports_.size() < kQueuedReports) {
                    opening->reports_.push_back(report);
                }
            }
        }
        news_.notify_all();
        if (input_.status == simbus::Status::stall) {
            return;  // a kernel does not poll a stalling endpoint until the next open
        }
    }
    ask();
}

}  // namespace sim
