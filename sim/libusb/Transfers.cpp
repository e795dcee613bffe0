#include "Transfers.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "Checks.h"
#include "Claims.h"
#include "Devices.h"

namespace sim {

namespace {

constexpr auto kSubmitTransfer = "libusb_submit_transfer";
constexpr auto kTransfersNotFreed = "transfers not freed";

/// The call point through which tests make transfers on an endpoint fail: "transfer:0x81".
simbus::CallPoint& completionPoint(std::uint8_t endpoint) {
    struct Points {
        std::array<std::array<char, 16>, 32> names{};
        std::array<simbus::CallPoint*, 32> points{};
        Points() {
            for (unsigned slot = 0; slot < points.size(); ++slot) {
                const unsigned address = slot < 16 ? slot : 0x80U + slot - 16;
                std::snprintf(names[slot].data(), names[slot].size(), "transfer:0x%02x", address);
                points[slot] = new simbus::CallPoint(names[slot].data());
            }
        }
    };
    static const auto* const all = new Points;
    return *all->points[(endpoint & 0x0FU) + ((endpoint & 0x80U) != 0 ? 16U : 0U)];
}

}  // namespace

TransferRecord::TransferRecord(int isochronousPackets)
    : shown(static_cast<libusb_transfer*>(
          std::calloc(1, sizeof(libusb_transfer) + sizeof(libusb_iso_packet_descriptor) *
                                                       static_cast<std::size_t>(isochronousPackets)))) {
    if (shown == nullptr) {
        throw std::bad_alloc();
    }
    bus.done = [this] { transferFinished(*this); };
}

TransferRecord::~TransferRecord() {
    std::free(shown);
}

TransferRecord& allocateTransfer(int isochronousPackets) {
    auto* record = new TransferRecord(isochronousPackets);
    simbus::Bus::instance().addToTally(kTransfersNotFreed, 1);
    const StateLock lock(state().mutex);
    state().transfers.add(record->shown, record);
    return *record;
}

void freeTransfer(TransferRecord& record) {
    if ((record.shown->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0) {
        std::free(record.shown->buffer);
    }
    simbus::Bus::instance().addToTally(kTransfersNotFreed, -1);
    const StateLock lock(state().mutex);
    if (record.device != nullptr) {
        releaseDevice(*record.device);
        record.device = nullptr;
    }
    state().transfers.retire(record.shown);
}

int cancelTransfer(TransferRecord& record, std::uint64_t submission, bool timedOut) {
    const std::lock_guard<std::mutex> guard(record.submission);
    {
        const StateLock lock(state().mutex);
        if (!record.inFlight || record.cancelling || (submission != 0 && submission != record.submissions)) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        record.cancelling = true;
        record.timedOut = timedOut;
    }
    if (simbus::Bus::instance().cancel(record.bus)) {
        return LIBUSB_SUCCESS;
    }
    const StateLock lock(state().mutex);
    return record.device->attached ? LIBUSB_ERROR_NOT_FOUND : LIBUSB_ERROR_NO_DEVICE;
}

namespace {

/// Fills in the bus's part from the program's. Returns LIBUSB_SUCCESS, or the code with which the submission
/// fails.
int prepare(TransferRecord& record) {
    libusb_transfer& shown = *record.shown;
    simbus::Transfer& bus = record.bus;
    if (shown.length < 0) {
        violation(kSubmitTransfer, "negative length");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if ((shown.flags & LIBUSB_TRANSFER_ADD_ZERO_PACKET) != 0 ||
        shown.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
        return LIBUSB_ERROR_NOT_SUPPORTED;
    }
    bus.endpoint = shown.endpoint;
    bus.data = shown.buffer;
    bus.length = static_cast<std::size_t>(shown.length);
    if (shown.type != LIBUSB_TRANSFER_TYPE_CONTROL) {
        return claimForTransfer(record);
    }
    constexpr int kLongest = 4096;
    constexpr std::size_t kSetupSize = LIBUSB_CONTROL_SETUP_SIZE;
    if (shown.length - static_cast<int>(kSetupSize) > kLongest) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (bus.length < kSetupSize) {
        return LIBUSB_ERROR_IO;
    }
    const unsigned char* setup = shown.buffer;
    const auto word = [&](int at) { return static_cast<std::uint16_t>(setup[at] | setup[at + 1] << 8); };
    bus.setup = {setup[0], setup[1], word(2), word(4), word(6)};
    bus.data += kSetupSize;
    bus.length -= kSetupSize;
    return bus.setup.length <= bus.length ? LIBUSB_SUCCESS : LIBUSB_ERROR_IO;
}

/// Records the submission; the transfer is in flight from here on.
int begin(TransferRecord& record) {
    const StateLock lock(state().mutex);
    if (record.inFlight) {
        return LIBUSB_ERROR_BUSY;
    }
    libusb_device_handle* handle = checkHandle(kSubmitTransfer, record.shown->dev_handle);
    if (handle == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (record.device != handle->device) {
        holdDevice(*handle->device);
        if (record.device != nullptr) {
            releaseDevice(*record.device);
        }
        record.device = handle->device;
    }
    record.handle = handle;
    record.context = handle->context;
    const int result = record.device->attached ? prepare(record) : LIBUSB_ERROR_NO_DEVICE;
    if (result != LIBUSB_SUCCESS) {
        return result;
    }
    ++record.submissions;
    record.inFlight = true;
    record.cancelling = record.timeoutSeen = record.timedOut = false;
    record.deadline = 0;
    if (record.shown->timeout != 0) {
        record.deadline = nowNanoseconds() + std::int64_t{record.shown->timeout} * 1'000'000;
    }
    record.context->flying.push_back(&record);
    if (record.deadline != 0) {
        wakeHandler(*record.context);  // a sleeping event handler must learn of the new deadline
    }
    return LIBUSB_SUCCESS;
}

void undo(TransferRecord& record) {
    const StateLock lock(state().mutex);
    record.inFlight = false;
    if (!record.abandoned) {
        removeFromFlying(record);
    }
    record.abandoned = false;
}

}  // namespace

int submitTransfer(TransferRecord& record) {
    const std::lock_guard<std::mutex> guard(record.submission);
    if (const int result = begin(record); result != LIBUSB_SUCCESS) {
        return result;
    }
    record.forcedStatus = completionPoint(record.bus.endpoint).enter();
    if (record.forcedStatus) {
        record.bus.actual = 0;
        transferFinished(record);
        return LIBUSB_SUCCESS;
    }
    switch (simbus::Bus::instance().submit(record.device->info->connection, record.bus)) {
        case simbus::Submitted::accepted:
            return LIBUSB_SUCCESS;
        case simbus::Submitted::noDevice:
            undo(record);
            return LIBUSB_ERROR_NO_DEVICE;
        default:
            undo(record);
            return LIBUSB_ERROR_IO;
    }
}

}  // namespace sim

using sim::StateLock;

libusb_transfer* libusb_alloc_transfer(int isochronousPackets) {
    static simbus::CallPoint callPoint(__func__);
    if (callPoint.enter() || isochronousPackets < 0) {
        return nullptr;
    }
    return sim::allocateTransfer(isochronousPackets).shown;
}

void libusb_free_transfer(libusb_transfer* given) {
    SIM_ENTER_VOID();
    if (given == nullptr) {
        return;
    }
    sim::TransferRecord* record = nullptr;
    std::vector<sim::TransferRecord*> abandoned;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer(__func__, given);
        if (record == nullptr) {
            return;
        }
        if (record->inFlight) {
            sim::violation(__func__, "transfer is in flight");
            abandoned = sim::abandonTransfers(
                *record->context, [&](const sim::TransferRecord& other) { return &other == record; });
        }
    }
    sim::stopOnBus(abandoned);
    sim::freeTransfer(*record);
}

int libusb_submit_transfer(libusb_transfer* given) {
    SIM_ENTER();
    sim::TransferRecord* record = nullptr;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer(__func__, given);
    }
    return record == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM) : sim::submitTransfer(*record);
}

int libusb_cancel_transfer(libusb_transfer* given) {
    SIM_ENTER();
    sim::TransferRecord* record = nullptr;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer(__func__, given);
    }
    return record == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM) : sim::cancelTransfer(*record);
}
