#include "Transfers.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>

#include "Checks.h"
#include "Claims.h"
#include "Devices.h"

namespace sim {

namespace {

constexpr auto transfersNotFreed = "transfers not freed";

// Where tests make transfers on an endpoint complete badly: "transfer:0x81".
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

// The bus has done with the transfer: it waits for a thread that handles events.
void finished(TransferRecord& record) {
    const StateLock lock(state().mutex);
    if (record.abandoned) {
        record.abandoned = false;
        record.inFlight = false;
        return;
    }
    record.context->finished.push_back(&record);
    record.context->wake.notify_all();
}

void stopFlying(TransferRecord& record) {
    auto& flying = record.context->flying;
    flying.erase(std::find(flying.begin(), flying.end(), &record));
}

libusb_transfer_status statusOf(const TransferRecord& record) {
    if (record.forcedStatus) {
        return static_cast<libusb_transfer_status>(*record.forcedStatus);
    }
    switch (record.bus.status) {
        case simbus::Status::completed:
            return LIBUSB_TRANSFER_COMPLETED;
        case simbus::Status::stall:
            return LIBUSB_TRANSFER_STALL;
        case simbus::Status::noDevice:
            return LIBUSB_TRANSFER_NO_DEVICE;
        case simbus::Status::overflow:
            return LIBUSB_TRANSFER_OVERFLOW;
        default:
            break;
    }
    if (record.timedOut) {
        return LIBUSB_TRANSFER_TIMED_OUT;
    }
    // A bulk or interrupt transfer that the kernel stopped by itself is shown as completed, with what it had
    // moved.
    const bool asked = record.cancelling || record.shown->type == LIBUSB_TRANSFER_TYPE_CONTROL;
    return asked ? LIBUSB_TRANSFER_CANCELLED : LIBUSB_TRANSFER_COMPLETED;
}

void showResult(TransferRecord& record) {
    libusb_transfer& shown = *record.shown;
    const bool control = shown.type == LIBUSB_TRANSFER_TYPE_CONTROL;
    const int wanted = shown.length - (control ? static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE) : 0);
    shown.actual_length = static_cast<int>(record.bus.actual);
    shown.status = statusOf(record);
    if (shown.status == LIBUSB_TRANSFER_COMPLETED && (shown.flags & LIBUSB_TRANSFER_SHORT_NOT_OK) != 0 &&
        shown.actual_length != wanted) {
        shown.status = LIBUSB_TRANSFER_ERROR;
    }
}

void complete(TransferRecord& record) {
    {
        const StateLock lock(state().mutex);
        stopFlying(record);
        record.inFlight = false;
        showResult(record);
    }
    libusb_transfer& shown = *record.shown;
    const bool freeAfterwards = (shown.flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
    if (shown.callback != nullptr) {
        const std::lock_guard<std::mutex> waiters(record.context->waitersMutex);
        threadState().inCallback = true;
        shown.callback(&shown);
        threadState().inCallback = false;
    }
    if (freeAfterwards) {
        freeTransfer(record);
    }
}

}  // namespace

std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

TransferRecord::TransferRecord(int isochronousPackets)
    : shown(static_cast<libusb_transfer*>(
          std::calloc(1, sizeof(libusb_transfer) + sizeof(libusb_iso_packet_descriptor) *
                                                       static_cast<std::size_t>(isochronousPackets)))) {
    if (shown == nullptr) {
        throw std::bad_alloc();
    }
    bus.done = [this] { finished(*this); };
}

TransferRecord::~TransferRecord() {
    std::free(shown);
}

TransferRecord& allocateTransfer(int isochronousPackets) {
    auto* record = new TransferRecord(isochronousPackets);
    simbus::Bus::instance().addToTally(transfersNotFreed, 1);
    const StateLock lock(state().mutex);
    state().transfers.add(record->shown, record);
    return *record;
}

void freeTransfer(TransferRecord& record) {
    if ((record.shown->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0) {
        std::free(record.shown->buffer);
    }
    simbus::Bus::instance().addToTally(transfersNotFreed, -1);
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

void expireTransfers(libusb_context& context) {
    std::vector<std::pair<TransferRecord*, std::uint64_t>> late;
    {
        const StateLock lock(state().mutex);
        const std::int64_t now = nowNanoseconds();
        for (TransferRecord* record : context.flying) {
            if (record->deadline != 0 && !record->timeoutSeen && record->deadline <= now) {
                record->timeoutSeen = true;
                late.emplace_back(record, record->submissions);
            }
        }
    }
    for (const auto& [record, submission] : late) {
        cancelTransfer(*record, submission, true);
    }
}

void reapTransfers(libusb_context& context) {
    constexpr int most =
        26;  // per pass, so that a program that submits anew in every callback still gets to return
    for (int reaped = 0; reaped < most; ++reaped) {
        TransferRecord* record = nullptr;
        {
            const StateLock lock(state().mutex);
            if (context.finished.empty()) {
                return;
            }
            record = context.finished.front();
            context.finished.pop_front();
        }
        complete(*record);
    }
}

void stopOnBus(const std::vector<TransferRecord*>& records) {
    for (TransferRecord* record : records) {
        const std::lock_guard<std::mutex> guard(record->submission);
        simbus::Bus::instance().cancel(record->bus);
    }
}

std::vector<TransferRecord*> flyingTransfers(const libusb_context& context, const Selection& selected) {
    std::vector<TransferRecord*> found;
    std::copy_if(context.flying.begin(), context.flying.end(), std::back_inserter(found),
                 [&](const TransferRecord* record) { return selected(*record); });
    return found;
}

std::vector<TransferRecord*> abandonTransfers(libusb_context& context, const Selection& selected) {
    auto abandoned = flyingTransfers(context, selected);
    for (TransferRecord* record : abandoned) {
        auto& finishedOnes = context.finished;
        const auto waiting = std::find(finishedOnes.begin(), finishedOnes.end(), record);
        record->abandoned = waiting == finishedOnes.end();
        record->inFlight = record->abandoned;
        if (waiting != finishedOnes.end()) {
            finishedOnes.erase(waiting);
        }
        stopFlying(*record);
        record->shown->dev_handle = nullptr;
    }
    return abandoned;
}

std::int64_t nextDeadline(const libusb_context& context) {
    std::int64_t next = std::numeric_limits<std::int64_t>::max();
    for (const TransferRecord* record : context.flying) {
        if (record->deadline != 0 && !record->timeoutSeen) {
            next = std::min(next, record->deadline);
        }
    }
    return next;
}

namespace {

// Fills in the bus's part from the program's. LIBUSB_SUCCESS or what the submission answers instead.
int prepare(TransferRecord& record) {
    libusb_transfer& shown = *record.shown;
    simbus::Transfer& bus = record.bus;
    if (shown.length < 0) {
        violation("libusb_submit_transfer", "negative length");
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
    constexpr int longest = 4096;
    constexpr std::size_t setupSize = LIBUSB_CONTROL_SETUP_SIZE;
    if (shown.length - static_cast<int>(setupSize) > longest) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (bus.length < setupSize) {
        return LIBUSB_ERROR_IO;
    }
    const unsigned char* setup = shown.buffer;
    const auto word = [&](int at) { return static_cast<std::uint16_t>(setup[at] | setup[at + 1] << 8); };
    bus.setup = {setup[0], setup[1], word(2), word(4), word(6)};
    bus.data += setupSize;
    bus.length -= setupSize;
    return bus.setup.length <= bus.length ? LIBUSB_SUCCESS : LIBUSB_ERROR_IO;
}

// Takes note of the submission, which is in flight from here on.
int begin(TransferRecord& record) {
    const StateLock lock(state().mutex);
    if (record.inFlight) {
        return LIBUSB_ERROR_BUSY;
    }
    libusb_device_handle* handle = checkHandle("libusb_submit_transfer", record.shown->dev_handle);
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
        record.context->wake.notify_all();  // whoever sleeps there must know of the new deadline
    }
    record.context->flying.push_back(&record);
    return LIBUSB_SUCCESS;
}

void undo(TransferRecord& record) {
    const StateLock lock(state().mutex);
    record.inFlight = false;
    if (!record.abandoned) {
        stopFlying(record);
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
        finished(record);
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
    static simbus::CallPoint callPoint("libusb_alloc_transfer");
    if (callPoint.enter() || isochronousPackets < 0) {
        return nullptr;
    }
    return sim::allocateTransfer(isochronousPackets).shown;
}

void libusb_free_transfer(libusb_transfer* given) {
    SIM_ENTER_VOID("libusb_free_transfer");
    if (given == nullptr) {
        return;
    }
    sim::TransferRecord* record = nullptr;
    std::vector<sim::TransferRecord*> abandoned;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer("libusb_free_transfer", given);
        if (record == nullptr) {
            return;
        }
        if (record->inFlight) {
            sim::violation("libusb_free_transfer", "transfer is in flight");
            abandoned = sim::abandonTransfers(
                *record->context, [&](const sim::TransferRecord& other) { return &other == record; });
        }
    }
    sim::stopOnBus(abandoned);
    sim::freeTransfer(*record);
}

int libusb_submit_transfer(libusb_transfer* given) {
    SIM_ENTER("libusb_submit_transfer");
    sim::TransferRecord* record = nullptr;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer("libusb_submit_transfer", given);
    }
    return record == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM) : sim::submitTransfer(*record);
}

int libusb_cancel_transfer(libusb_transfer* given) {
    SIM_ENTER("libusb_cancel_transfer");
    sim::TransferRecord* record = nullptr;
    {
        const StateLock lock(sim::state().mutex);
        record = sim::checkTransfer("libusb_cancel_transfer", given);
    }
    return record == nullptr ? static_cast<int>(LIBUSB_ERROR_INVALID_PARAM) : sim::cancelTransfer(*record);
}
