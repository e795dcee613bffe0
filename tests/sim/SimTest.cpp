#include "SimTest.h"

#include <numeric>

namespace simtest {

namespace {

constexpr auto scenario = R"({"devices": [
 {"id": "echo", "vendorId": "0x6A5C", "productId": "0x1001", "bcdDevice": "0x0102",
  "manufacturer": "Talvane", "product": "Echo Tool", "serial": "ECHO0001",
  "interfaces": [{"endpoints": [
    {"address": "0x01"}, {"address": "0x81"},
    {"address": "0x02", "type": "interrupt", "interval": 1}, {"address": "0x82", "type": "interrupt", "interval": 1}]}],
  "control": [
    {"requestType": "0x40", "request": 1, "store": "slot"}, {"requestType": "0xC0", "request": 1, "fetch": "slot"},
    {"requestType": "0xC0", "request": 2, "reply": "0A0B0C0D"}, {"requestType": "0xC0", "request": 3, "stall": true},
    {"requestType": "0xC0", "request": 4, "silent": true}]},
 {"id": "double", "vendorId": "0x6A5D", "productId": "0x2001", "serial": "DOUBLE01",
  "configurations": [
   {"value": 1, "interfaces": [
     {"number": 0, "endpoints": [{"address": "0x01"}, {"address": "0x81"}]},
     {"number": 1, "alternate": 0, "string": "Data Port"},
     {"number": 1, "alternate": 1, "endpoints": [{"address": "0x03"}, {"address": "0x83"}]}]},
   {"value": 2, "interfaces": [{"number": 0, "endpoints": [{"address": "0x02"}, {"address": "0x82"}]}]}]},
 {"id": "away", "plugged": false, "vendorId": "0x6A5C", "productId": "0x1001", "serial": "ECHO0003",
  "interfaces": [{"endpoints": [{"address": "0x01"}, {"address": "0x81"}]}]}
]})";

}  // namespace

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

Bytes counting(std::size_t length, unsigned first) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(first));
    return bytes;
}

Json ask(const Json& request) {
    return Json::parse(simbus::Bus::instance().command(request.dump()));
}

void SimTest::SetUp() {
    bus.loadScenario(scenario);
    bus.reset();
}

void SimTest::TearDown() {
    EXPECT_THAT(takeViolations(), testing::IsEmpty());
    bus.reset();
}

std::vector<std::string> SimTest::takeViolations() {
    auto violations = bus.violations();
    bus.clearViolations();
    return violations;
}

simbus::ConnectionId SimTest::connectionOf(const std::string& id) {
    for (const auto& device : bus.devices()) {
        if (device->id == id) {
            return device->connection;
        }
    }
    return 0;
}

void LibusbTest::SetUp() {
    SimTest::SetUp();
    ASSERT_EQ(libusb_init(&context), 0);
}

void LibusbTest::TearDown() {
    endContext();
    SimTest::TearDown();
}

void LibusbTest::endContext() {
    bus.clearHooks();
    bus.clearFaults();
    for (auto* handle : handles_) {
        libusb_close(handle);
    }
    for (auto* device : devices_) {
        libusb_unref_device(device);
    }
    if (context != nullptr) {
        libusb_exit(context);
    }
    handles_.clear();
    devices_.clear();
    context = nullptr;
}

libusb_device* LibusbTest::device(const std::string& serial) {
    libusb_device** list = nullptr;
    libusb_device* found = nullptr;
    EXPECT_GE(libusb_get_device_list(context, &list), 0);
    for (const auto& info : bus.devices()) {
        for (libusb_device** candidate = list; info->serial == serial && *candidate != nullptr; ++candidate) {
            if (libusb_get_device_address(*candidate) == info->address) {
                found = libusb_ref_device(*candidate);
                devices_.push_back(found);
            }
        }
    }
    libusb_free_device_list(list, 1);
    return found;
}

libusb_device_handle* LibusbTest::open(const std::string& serial) {
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(device(serial), &handle), 0);
    handles_.push_back(handle);
    return handle;
}

void LibusbTest::close(libusb_device_handle* handle) {
    handles_.erase(std::find(handles_.begin(), handles_.end(), handle));
    libusb_close(handle);
}

std::vector<std::string> LibusbTest::serials() {
    std::vector<std::string> serials;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    for (ssize_t i = 0; i < count; ++i) {
        for (const auto& info : bus.devices()) {
            if (info->address == libusb_get_device_address(list[i])) {
                serials.push_back(info->serial);
            }
        }
    }
    libusb_free_device_list(list, 1);
    return serials;
}

int LibusbTest::handleEvents(std::chrono::milliseconds time) {
    timeval period{0, static_cast<suseconds_t>(time.count() * 1000)};
    return libusb_handle_events_timeout_completed(context, &period, nullptr);
}

AsyncTransfer::AsyncTransfer(libusb_device_handle* handle, std::uint8_t endpoint, Bytes data,
                             unsigned timeout, std::uint8_t type)
    : buffer(std::move(data)), raw(libusb_alloc_transfer(0)) {
    libusb_fill_bulk_transfer(raw, handle, endpoint, buffer.data(), static_cast<int>(buffer.size()), callback,
                              this, timeout);
    raw->type = type;
}

AsyncTransfer::~AsyncTransfer() {
    free();
}

void AsyncTransfer::free() {
    if (raw != nullptr) {
        libusb_free_transfer(raw);
        raw = nullptr;
    }
}

void AsyncTransfer::callback(libusb_transfer* transfer) {
    auto* self = static_cast<AsyncTransfer*>(transfer->user_data);
    self->calledOn = std::this_thread::get_id();
    if (self->onCallback) {
        self->onCallback();
    }
    ++self->callbacks;
}

EventThread::EventThread(libusb_context* context, timeval period)
    : context_(context), thread_([this, period] {
          while (!stopping_) {
              timeval time = period;
              ++passes_;
              libusb_handle_events_timeout_completed(context_, &time, nullptr);
          }
      }) {}

EventThread::~EventThread() {
    stop();
}

void EventThread::stop() {
    if (thread_.joinable()) {
        stopping_ = true;
        libusb_interrupt_event_handler(context_);
        thread_.join();
    }
}

}  // namespace simtest
