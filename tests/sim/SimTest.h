// Shared by the tests of the simulated bus.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "Bus.h"

namespace simtest {

using Json = nlohmann::json;
using simbus::Bytes;

// Long enough for the slowest machine; on a working one the awaited event comes at once.
constexpr auto deadline = std::chrono::seconds(30);
// How long a test observes that something does not happen.
constexpr auto aWhile = std::chrono::milliseconds(100);

// Waits for a condition, yielding between checks. Returns false when the deadline has passed.
bool eventually(const std::function<bool()>& condition);

Bytes counting(std::size_t length, unsigned first = 0);

// Sends one request of the control protocol and returns its answer.
Json ask(const Json& request);

// A transfer whose end can be waited for.
class Exchange {
 public:
    Exchange(simbus::ConnectionId connection, std::uint8_t endpoint, Bytes data, simbus::Setup setup = {})
        : data_(std::move(data)) {
        transfer.endpoint = endpoint;
        transfer.setup = setup;
        data_.resize(std::max<std::size_t>(data_.size(), setup.length));
        transfer.data = data_.data();
        transfer.length = data_.size();
        transfer.done = [this] { ended_ = true; };
        EXPECT_EQ(simbus::Bus::instance().submit(connection, transfer), simbus::Submitted::accepted);
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    bool waits() const { return !ended_; }
    simbus::Status status() {
        EXPECT_TRUE(eventually([this] { return !waits(); }));
        return transfer.status;
    }
    Bytes received() {
        EXPECT_EQ(status(), simbus::Status::completed);
        return {data_.begin(), data_.begin() + static_cast<std::ptrdiff_t>(transfer.actual)};
    }

    simbus::Transfer transfer;

 private:
    Bytes data_;
    std::atomic<bool> ended_{false};
};

// A bus with: "echo" (ECHO0001; bulk 01/81 and interrupt 02/82 echo pairs, packets of 64), "double" (two
// configurations; the first has two interfaces, the second of them two settings), and "away" (ECHO0003),
// which is not plugged in. A test fails if it leaves violations on the bus that it has not taken.
class SimTest : public testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    std::vector<std::string> takeViolations();
    simbus::ConnectionId connectionOf(const std::string& id);

    simbus::Bus& bus = simbus::Bus::instance();
};

// The same with a libusb context.
class LibusbTest : public SimTest {
 protected:
    void SetUp() override;
    void TearDown() override;

    libusb_device* device(
        const std::string& serial);  // referenced until the end of the test; null when absent
    libusb_device_handle* open(const std::string& serial);
    void close(libusb_device_handle* handle);
    // Closes and frees everything and ends the context.
    void endContext();
    std::vector<std::string> serials();  // of libusb's device list, in order

    // One pass of event handling of at most `time`.
    int handleEvents(std::chrono::milliseconds time = std::chrono::milliseconds(0));

    libusb_context* context = nullptr;

 private:
    std::vector<libusb_device_handle*> handles_;
    std::vector<libusb_device*> devices_;
};

// An asynchronous transfer with its buffer; counts its callbacks.
class AsyncTransfer {
 public:
    AsyncTransfer(libusb_device_handle* handle, std::uint8_t endpoint, Bytes data, unsigned timeout = 0,
                  std::uint8_t type = LIBUSB_TRANSFER_TYPE_BULK);
    ~AsyncTransfer();
    AsyncTransfer(const AsyncTransfer&) = delete;
    AsyncTransfer& operator=(const AsyncTransfer&) = delete;

    int submit() { return libusb_submit_transfer(raw); }
    bool pending() const { return callbacks.load() == 0; }
    Bytes moved() const { return {buffer.begin(), buffer.begin() + raw->actual_length}; }
    void free();  // before the end of the test

    Bytes buffer;
    libusb_transfer* raw;
    std::atomic<int> callbacks{0};
    std::thread::id calledOn;
    std::function<void()> onCallback;

 private:
    static void callback(libusb_transfer* transfer);
};

// A thread that handles events in periods until it is stopped.
class EventThread {
 public:
    explicit EventThread(libusb_context* context, timeval period = {1, 0});
    ~EventThread();
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

    void stop();
    std::thread::id id() const { return thread_.get_id(); }
    int passes() const { return passes_.load(); }

 private:
    libusb_context* context_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> passes_{0};
    std::thread thread_;
};

}  // namespace simtest
