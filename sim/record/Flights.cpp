#include "Flights.h"

#include <mutex>
#include <unordered_map>

#include "Forward.h"
#include "LibusbPlaces.h"
#include "Traffic.h"

namespace simbus::record {

namespace {

struct Flight {
    libusb_transfer_cb_fn callback = nullptr;  ///< the program's
    std::uint64_t urb = 0;
    Place place;
};

struct Flights {
    std::mutex mutex;
    std::unordered_map<const libusb_transfer*, Flight> all;
};

/// Lasts until the process has ended.
Flights& flights() {
    static auto* const every = new Flights;
    return *every;
}

std::int32_t statusOf(libusb_transfer_status status) {
    switch (status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return capture::statusCompleted;
        case LIBUSB_TRANSFER_STALL:
            return capture::statusStall;
        case LIBUSB_TRANSFER_TIMED_OUT:
        case LIBUSB_TRANSFER_CANCELLED:
            return capture::statusCancelled;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return capture::statusNoDevice;
        case LIBUSB_TRANSFER_OVERFLOW:
            return capture::statusOverflow;
        default:
            return capture::statusError;
    }
}

capture::Kind kindOf(const libusb_transfer& transfer) {
    switch (transfer.type) {
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            return capture::Kind::control;
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return capture::Kind::isochronous;
        case LIBUSB_TRANSFER_TYPE_INTERRUPT:
            return capture::Kind::interrupt;
        default:
            return capture::Kind::bulk;
    }
}

void addIsochronous(const libusb_transfer& transfer, bool ended, Move& move) {
    std::uint32_t offset = 0;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        const libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        move.isochronous.push_back({ended ? statusOf(packet.status) : capture::statusInProgress, offset,
                                    ended ? packet.actual_length : packet.length});
        offset += packet.length;
    }
}

Move moveOf(const libusb_transfer& transfer, const Place& place, bool ended) {
    Move move;
    move.place = place;
    move.kind = kindOf(transfer);
    move.endpoint = transfer.endpoint;
    move.data = transfer.buffer;
    move.length = transfer.length < 0 ? 0 : static_cast<std::size_t>(transfer.length);
    if (move.kind == capture::Kind::control && move.length >= LIBUSB_CONTROL_SETUP_SIZE) {
        move.endpoint = transfer.buffer[0] & LIBUSB_ENDPOINT_IN;
        move.setup = transfer.buffer;
        move.data += LIBUSB_CONTROL_SETUP_SIZE;
        move.length -= LIBUSB_CONTROL_SETUP_SIZE;
    }
    if (move.kind == capture::Kind::isochronous) {
        addIsochronous(transfer, ended, move);
    }
    return move;
}

std::size_t movedBy(const libusb_transfer& transfer, const Move& move) {
    if (move.kind != capture::Kind::isochronous) {
        return static_cast<std::size_t>(transfer.actual_length);
    }
    std::size_t sum = 0;
    for (const capture::IsochronousPacket& packet : move.isochronous) {
        sum += packet.length;
    }
    return sum;
}

void LIBUSB_CALL ended(libusb_transfer* transfer) {
    Flight flight;
    {
        const std::lock_guard<std::mutex> lock(flights().mutex);
        flight = flights().all[transfer];
    }
    transfer->callback = flight.callback;
    const Move move = moveOf(*transfer, flight.place, true);
    recordEnd(flight.urb, move, statusOf(transfer->status), movedBy(*transfer, move));
    const Inside outside(false);
    if (flight.callback != nullptr) {
        flight.callback(transfer);
    }
}

}  // namespace

void addFlight(libusb_transfer* transfer) {
    const std::lock_guard<std::mutex> lock(flights().mutex);
    flights().all[transfer] = Flight();
}

void removeFlight(libusb_transfer* transfer) {
    const std::lock_guard<std::mutex> lock(flights().mutex);
    flights().all.erase(transfer);
}

bool startFlight(libusb_transfer* transfer) {
    if (transfer->callback == &ended || transfer->dev_handle == nullptr) {
        return false;  // in flight already, or no transfer at all: libusb says so
    }
    const Place place = placeOf(transfer->dev_handle);
    const std::lock_guard<std::mutex> lock(flights().mutex);
    const auto found = flights().all.find(transfer);
    if (found == flights().all.end()) {
        return false;
    }
    const std::uint64_t urb = recordStart(moveOf(*transfer, place, false));
    found->second = {transfer->callback, urb, place};
    transfer->callback = &ended;
    return true;
}

void refuseFlight(libusb_transfer* transfer, std::int32_t status) {
    const std::lock_guard<std::mutex> lock(flights().mutex);
    const auto found = flights().all.find(transfer);
    if (found != flights().all.end()) {
        transfer->callback = found->second.callback;
        recordRefusal(found->second.urb, moveOf(*transfer, found->second.place, false), status);
    }
}

}  // namespace simbus::record
