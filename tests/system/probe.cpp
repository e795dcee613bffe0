// Drives one echo device of the simulated bus through a real kernel and the system's libusb, and prints one
// line "ok NAME" or "not ok NAME: why" for each thing that it proves. Exit status 0 when all are ok. usage:
// probe SERIAL [ROUNDTRIPS]
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <future>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BusControl.h"
#include "Expect.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Handle = std::unique_ptr<libusb_device_handle, decltype(&libusb_close)>;
using Packet = std::vector<unsigned char>;

constexpr unsigned char out = 0x01;
constexpr unsigned char in = 0x81;
constexpr unsigned packetSize = 64;

void expectCode(int got, int wanted, const std::string& what) {
    expect(got == wanted, what + " gave " + libusb_error_name(got) + ", not " + libusb_error_name(wanted));
}

class Probe {
 public:
    Probe(std::string serial, int roundTrips) : serial_(std::move(serial)), roundTrips_(roundTrips) {
        expectCode(libusb_init(&context_), 0, "libusb_init");
        const nlohmann::json answer = bus_({{"op", "devices"}});
        for (const auto& device : answer["devices"]) {
            if (device.value("serial", "") == serial_) {
                id_ = device["id"];
            }
        }
        expect(!id_.empty(), "no device with serial " + serial_ + " on the bus");
    }
    ~Probe() { libusb_exit(context_); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    int run() {
        check("bulk data comes back unchanged", &Probe::roundTrips);
        check("transfers of many sizes come back whole", &Probe::manySizes);
        check("a silent endpoint times out", &Probe::timesOut);
        check("a waiting transfer is cancelled", &Probe::cancels);
        check("cancelling loses no data", &Probe::cancelRace);
        check("a stall is seen and cleared", &Probe::stalls);
        check("an unplug ends a blocked read", &Probe::unplugDuringRead);
        check("plug and unplug are hotplug events", &Probe::hotplug);
        return failed_ ? 1 : 0;
    }

 private:
    void check(const char* name, void (Probe::*body)()) {
        try {
            bus_({{"op", "reset"}});
            (this->*body)();
            std::printf("ok %s\n", name);
        } catch (const std::exception& problem) {
            failed_ = true;
            std::printf("not ok %s: %s\n", name, problem.what());
        }
        std::fflush(stdout);
    }

    Handle tryOpen() {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context_, &list);
        Handle found(nullptr, libusb_close);
        for (ssize_t i = 0; i < count && !found; ++i) {
            libusb_device_descriptor descriptor{};
            libusb_device_handle* handle = nullptr;
            libusb_get_device_descriptor(list[i], &descriptor);
            if (descriptor.iSerialNumber == 0 || libusb_open(list[i], &handle) != 0) {
                continue;
            }
            Handle opened(handle, libusb_close);
            char text[128] = "";
            libusb_get_string_descriptor_ascii(handle, descriptor.iSerialNumber,
                                               reinterpret_cast<unsigned char*>(text), sizeof text);
            if (text == serial_) {
                found = std::move(opened);
            }
        }
        libusb_free_device_list(list, 1);
        return found;
    }

    // The device, as soon as the kernel and udev have it, with its interface claimed.
    Handle open() {
        Handle handle(nullptr, libusb_close);
        waitFor(serial_, [&] {
            handle = tryOpen();
            return handle != nullptr;
        });
        expectCode(libusb_claim_interface(handle.get(), 0), 0, "claiming interface 0");
        return handle;
    }

    static void write(const Handle& handle, Packet data) {
        int moved = 0;
        expectCode(libusb_bulk_transfer(handle.get(), out, data.data(), static_cast<int>(data.size()), &moved,
                                        generous),
                   0, "writing");
        expect(moved == static_cast<int>(data.size()), "a write was cut short");
    }

    static Packet read(const Handle& handle, std::size_t length, unsigned timeout = generous) {
        Packet data(length);
        int moved = 0;
        expectCode(
            libusb_bulk_transfer(handle.get(), in, data.data(), static_cast<int>(length), &moved, timeout), 0,
            "reading");
        data.resize(static_cast<std::size_t>(moved));
        return data;
    }

    static Packet numbered(std::size_t length, std::size_t first) {
        Packet data(length);
        std::iota(data.begin(), data.end(), static_cast<unsigned char>(first));
        return data;
    }

    void setEndpoint(unsigned char address, const char* behaviour) {
        bus_(
            {{"op", "endpoint"}, {"device", id_}, {"address", address}, {"set", {{"behaviour", behaviour}}}});
    }

    void waitUntilBlocked(unsigned count) {
        waitFor("the read to block", [&] {
            return bus_({{"op", "pending"}, {"device", id_}, {"address", in}})["count"] == count;
        });
    }

    void roundTrips() {
        const Handle handle = open();
        const auto start = Clock::now();
        for (int i = 0; i < roundTrips_; ++i) {
            const Packet data = numbered(packetSize, static_cast<std::size_t>(i));
            write(handle, data);
            expect(read(handle, packetSize) == data, "round trip " + std::to_string(i) + " changed the data");
        }
        const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
        std::printf("# %d round trips, %lld us each\n", roundTrips_,
                    static_cast<long long>(took.count() / std::max(roundTrips_, 1)));
    }

    void manySizes() {
        const Handle handle = open();
        for (const std::size_t size : {1U, 63U, 64U, 65U, 128U, 1000U, 4096U, 16385U, 100000U}) {
            const Packet data = numbered(size, size);
            write(handle, data);
            expect(read(handle, size) == data, std::to_string(size) + " bytes came back changed");
        }
    }

    void timesOut() {
        const Handle handle = open();
        setEndpoint(in, "silent");
        Packet data(packetSize);
        int moved = -1;
        const auto start = Clock::now();
        expectCode(libusb_bulk_transfer(handle.get(), in, data.data(), packetSize, &moved, 100),
                   LIBUSB_ERROR_TIMEOUT, "reading from a silent endpoint");
        expect(moved == 0, "a silent endpoint gave data");
        expect(Clock::now() - start >= milliseconds(99), "the time-out came too soon");
    }

    struct Async {
        explicit Async(const Handle& handle) : data(packetSize) {
            libusb_fill_bulk_transfer(transfer.get(), handle.get(), in, data.data(), packetSize, finished,
                                      this, 0);
            expectCode(libusb_submit_transfer(transfer.get()), 0, "submitting");
        }
        static void LIBUSB_CALL finished(libusb_transfer* transfer) {
            static_cast<Async*>(transfer->user_data)->completed = 1;
        }

        Packet data;
        int completed = 0;
        std::unique_ptr<libusb_transfer, decltype(&libusb_free_transfer)> transfer{libusb_alloc_transfer(0),
                                                                                   libusb_free_transfer};
    };

    void await(Async& async) {
        while (async.completed == 0) {
            expectCode(libusb_handle_events_completed(context_, &async.completed), 0, "handling events");
        }
    }

    void cancels() {
        const Handle handle = open();
        Async async(handle);
        waitUntilBlocked(1);
        expectCode(libusb_cancel_transfer(async.transfer.get()), 0, "cancelling");
        await(async);
        expect(async.transfer->status == LIBUSB_TRANSFER_CANCELLED, "the transfer was not cancelled");
        waitUntilBlocked(0);
    }

    // A reader that gives up just when data comes either gets the data or leaves it for the next reader.
    void cancelRace() {
        const Handle handle = open();
        Packet received;
        Packet sent;
        for (unsigned char i = 0; i < 250; ++i) {
            Async async(handle);
            write(handle, {i});
            sent.push_back(i);
            libusb_cancel_transfer(async.transfer.get());
            await(async);
            received.insert(received.end(), async.data.begin(),
                            async.data.begin() + async.transfer->actual_length);
        }
        while (received.size() < sent.size()) {
            const Packet rest = read(handle, packetSize);
            received.insert(received.end(), rest.begin(), rest.end());
        }
        expect(received == sent, "the bytes did not come once each and in order");
    }

    void stalls() {
        const Handle handle = open();
        setEndpoint(in, "stall");
        Packet data(packetSize);
        int moved = 0;
        expectCode(libusb_bulk_transfer(handle.get(), in, data.data(), packetSize, &moved, generous),
                   LIBUSB_ERROR_PIPE, "reading from a stalling endpoint");
        setEndpoint(in, "echo");
        expectCode(libusb_clear_halt(handle.get(), in), 0, "clearing the halt");
        write(handle, {1, 2, 3});
        expect(read(handle, packetSize) == Packet{1, 2, 3}, "no data after the halt was cleared");
    }

    void unplugDuringRead() {
        const Handle handle = open();
        auto result = std::async(std::launch::async, [&] {
            Packet data(packetSize);
            int moved = 0;
            return libusb_bulk_transfer(handle.get(), in, data.data(), packetSize, &moved, 0);
        });
        waitUntilBlocked(1);
        bus_({{"op", "unplug"}, {"device", id_}});
        expectCode(result.get(), LIBUSB_ERROR_NO_DEVICE, "the blocked read");
    }

    static int LIBUSB_CALL note(libusb_context*, libusb_device*, libusb_hotplug_event event, void* events) {
        static_cast<std::string*>(events)->push_back(event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED ? 'A'
                                                                                                  : 'L');
        return 0;
    }

    void hotplug() {
        libusb_device_descriptor identity{};
        {
            const Handle handle = open();
            libusb_get_device_descriptor(libusb_get_device(handle.get()), &identity);
        }
        std::string events;
        libusb_hotplug_callback_handle registration{};
        expectCode(libusb_hotplug_register_callback(
                       context_, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
                       identity.idVendor, identity.idProduct, LIBUSB_HOTPLUG_MATCH_ANY, note, &events,
                       &registration),
                   0, "registering for hotplug events");
        std::string wanted;
        for (int i = 0; i < 10; ++i) {
            for (const auto& [operation, event] : {std::pair{"unplug", 'L'}, std::pair{"plug", 'A'}}) {
                bus_({{"op", operation}, {"device", id_}});
                wanted += event;
                waitFor(operation, [&] {
                    timeval soon{0, 10000};
                    libusb_handle_events_timeout_completed(context_, &soon, nullptr);
                    return events == wanted;
                });
            }
        }
        libusb_hotplug_deregister_callback(context_, registration);
        open();
    }

    const std::string serial_;
    const int roundTrips_;
    BusControl bus_;
    std::string id_;
    libusb_context* context_ = nullptr;
    bool failed_ = false;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: probe SERIAL [ROUNDTRIPS]\n");
        return 2;
    }
    try {
        return Probe(argv[1], argc > 2 ? std::stoi(argv[2]) : 1000).run();
    } catch (const std::exception& problem) {
        std::printf("not ok probe: %s\n", problem.what());
        return 1;
    }
}
