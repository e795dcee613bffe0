// The functions of hidapi whose traffic is recorded: reports as interrupt transfers, or as the requests that
// they are on the bus. All other functions are jumps to the real library's.
#pragma GCC visibility push(default)
#include <hidapi.h>
extern "C" int hid_send_output_report(hid_device* device, const unsigned char* data, size_t length);
extern "C" int hid_get_report_descriptor(hid_device* device, unsigned char* buffer, size_t size);
#pragma GCC visibility pop

#include <array>
#include <map>
#include <mutex>
#include <optional>

#include "Forward.h"
#include "HidPlaces.h"
#include "Journal.h"
#include "Traffic.h"

RECORDED_FUNCTION(hid_open);
RECORDED_FUNCTION(hid_open_path);
RECORDED_FUNCTION(hid_close);
RECORDED_FUNCTION(hid_get_device_info);
RECORDED_FUNCTION(hid_get_report_descriptor);
RECORDED_FUNCTION(hid_write);
RECORDED_FUNCTION(hid_read);
RECORDED_FUNCTION(hid_read_timeout);
RECORDED_FUNCTION(hid_send_feature_report);
RECORDED_FUNCTION(hid_send_output_report);
RECORDED_FUNCTION(hid_get_feature_report);
RECORDED_FUNCTION(hid_get_input_report);

namespace {

namespace capture = simbus::capture;
using simbus::record::Bytes;
using simbus::record::HidPlace;
using simbus::record::Inside;
using simbus::record::Move;

enum ReportType : std::uint8_t { inputReport = 1, outputReport = 2, featureReport = 3 };
constexpr std::uint8_t kGetReport = 0x01;
constexpr std::uint8_t kSetReport = 0x09;

struct Openings {
    std::mutex mutex;
    std::map<const hid_device*, HidPlace> all;
};

/// Lasts until the process has ended.
Openings& openings() {
    static auto* const every = new Openings;
    return *every;
}

bool isRecordedHere() {
    // A hidapi that uses libusb is recorded there.
    static const bool isOverLibusb = simbus::record::realHas("libusb_init");
    return !isOverLibusb && simbus::record::isRecorded();
}

std::optional<HidPlace> placeOf(const hid_device* device) {
    const std::lock_guard<std::mutex> lock(openings().mutex);
    const auto found = openings().all.find(device);
    return found == openings().all.end() || !isRecordedHere() ? std::nullopt
                                                              : std::make_optional(found->second);
}

Bytes readReportDescriptor(hid_device* device, const char* path) {
    constexpr std::size_t kLongest = 4096;
    Bytes descriptor(kLongest);
    const int count = REAL(hid_get_report_descriptor)(device, descriptor.data(), descriptor.size());
    descriptor.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return count < 0 ? simbus::record::reportDescriptorOf(path) : descriptor;
}

template <class Open>
hid_device* opened(Open open) {
    const bool recorded = isRecordedHere();
    const Inside inside;
    hid_device* device = open();
    const hid_device_info* info =
        device == nullptr || !recorded ? nullptr : REAL(hid_get_device_info)(device);
    if (info != nullptr && info->path != nullptr) {
        const HidPlace place =
            simbus::record::recordHidDevice(*info, readReportDescriptor(device, info->path));
        const std::lock_guard<std::mutex> lock(openings().mutex);
        openings().all[device] = place;
    }
    return device;
}

/// The report that a program gives or gets as `data`: without its number, if that is 0, which means that it
/// has none.
struct Report {
    const unsigned char* bytes;
    std::size_t length;
};
Report reportOf(const unsigned char* data, std::size_t length) {
    const std::size_t unnumbered = length != 0 && data[0] == 0 ? 1 : 0;
    return {data + unnumbered, length - unnumbered};
}

Move requestOf(const HidPlace& place, std::uint8_t request, ReportType type, const unsigned char* data,
               std::size_t length, std::array<std::uint8_t, 8>& setup) {
    const Report report = reportOf(data, length);
    const std::uint8_t requestType = request == kGetReport ? 0xA1 : 0x21;
    setup = {requestType,
             request,
             length == 0 ? std::uint8_t{0} : data[0],
             type,
             place.interface,
             0,
             static_cast<std::uint8_t>(report.length & 0xFFU),
             static_cast<std::uint8_t>(report.length >> 8U)};
    Move move;
    move.place = place.place;
    move.endpoint = requestType & 0x80U;
    move.setup = setup.data();
    move.data = report.bytes;
    move.length = report.length;
    return move;
}

/// hidapi does not tell a stall from other failures.
std::int32_t statusOf(int result) {
    return result < 0 ? capture::statusStall : capture::statusCompleted;
}

template <class Call>
int runRequest(hid_device* device, std::uint8_t request, ReportType type, const unsigned char* data,
               std::size_t length, Call call) {
    const auto place = placeOf(device);
    const Inside inside;
    if (!place || data == nullptr) {
        return call();
    }
    std::array<std::uint8_t, 8> setup{};
    const bool isNumbered = length != 0 && data[0] != 0;
    const Move move = requestOf(*place, request, type, data, length, setup);
    const std::uint64_t urb = recordStart(move);
    const int result = call();
    const int moved = result - (isNumbered ? 0 : 1);
    recordEnd(urb, move, statusOf(result), result < 1 ? 0 : static_cast<std::size_t>(moved));
    return result;
}

/// A read that finds nothing is not recorded: the system reads reports all the time, whoever asks for them.
template <class Read>
int runRead(hid_device* device, const unsigned char* data, Read read) {
    const auto place = placeOf(device);
    const int result = [&] {
        const Inside inside;
        return read();
    }();
    if (place && result != 0 && data != nullptr) {
        Move move;
        move.place = place->place;
        move.kind = capture::Kind::interrupt;
        move.endpoint = place->inEndpoint;
        move.data = data;
        move.length = result < 0 ? 0 : static_cast<std::size_t>(result);
        recordEnd(recordStart(move), move, result < 0 ? capture::statusNoDevice : capture::statusCompleted,
                  move.length);
    }
    return result;
}

}  // namespace

hid_device* hid_open(unsigned short vendorId, unsigned short productId, const wchar_t* serial) {
    return opened([&] { return REAL(hid_open)(vendorId, productId, serial); });
}

hid_device* hid_open_path(const char* path) {
    return opened([&] { return REAL(hid_open_path)(path); });
}

void hid_close(hid_device* device) {
    {
        const std::lock_guard<std::mutex> lock(openings().mutex);
        openings().all.erase(device);
    }
    REAL(hid_close)(device);
}

int hid_write(hid_device* device, const unsigned char* data, size_t length) {
    const auto write = [&] { return REAL(hid_write)(device, data, length); };
    const auto place = placeOf(device);
    if (!place || data == nullptr || place->outEndpoint == 0) {
        return runRequest(device, kSetReport, outputReport, data, length, write);
    }
    const Report report = reportOf(data, length);
    Move move;
    move.place = place->place;
    move.kind = capture::Kind::interrupt;
    move.endpoint = place->outEndpoint;
    move.data = report.bytes;
    move.length = report.length;
    const std::uint64_t urb = recordStart(move);
    const Inside inside;
    const int result = write();
    recordEnd(urb, move, statusOf(result), result < 0 ? 0 : move.length);
    return result;
}

int hid_read_timeout(hid_device* device, unsigned char* data, size_t length, int milliseconds) {
    return runRead(device, data, [&] { return REAL(hid_read_timeout)(device, data, length, milliseconds); });
}

int hid_read(hid_device* device, unsigned char* data, size_t length) {
    return runRead(device, data, [&] { return REAL(hid_read)(device, data, length); });
}

int hid_send_feature_report(hid_device* device, const unsigned char* data, size_t length) {
    return runRequest(device, kSetReport, featureReport, data, length,
                      [&] { return REAL(hid_send_feature_report)(device, data, length); });
}

int hid_send_output_report(hid_device* device, const unsigned char* data, size_t length) {
    return runRequest(device, kSetReport, outputReport, data, length,
                      [&] { return REAL(hid_send_output_report)(device, data, length); });
}

int hid_get_feature_report(hid_device* device, unsigned char* data, size_t length) {
    return runRequest(device, kGetReport, featureReport, data, length,
                      [&] { return REAL(hid_get_feature_report)(device, data, length); });
}

int hid_get_input_report(hid_device* device, unsigned char* data, size_t length) {
    return runRequest(device, kGetReport, inputReport, data, length,
                      [&] { return REAL(hid_get_input_report)(device, data, length); });
}
