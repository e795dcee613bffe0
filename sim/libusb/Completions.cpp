// The path of a transfer from its completion on the bus to its callback, and the early ends of a transfer.
#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>

#include "Checks.h"
#include "Transfers.h"

namespace sim {

std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void transferFinished(TransferRecord& record) {
    const StateLock lock(state().mutex);
    if (record.abandoned) {
        record.abandoned = false;
        record.inFlight = false;
        return;
    }
    record.context->finished.push_back(&record);
    wakeHandler(*record.context);
}

void removeFromFlying(TransferRecord& record) {
    auto& flying = record.context->flying;
    flying.erase(std::find(flying.begin(), flying.end(), &record));
}

namespace {

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
    // A bulk or interrupt transfer that the kernel stopped by itself is reported as completed, with the bytes
    // transferred.
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
        removeFromFlying(record);
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

void expireTransfers(libusb_context& context) {
    struct Late {
        TransferRecord* record;
        std::uint64_t submission;
        std::int64_t deadline;
    };
    std::vector<Late> late;
    {
        const StateLock lock(state().mutex);
        const std::int64_t now = nowNanoseconds();
        for (TransferRecord* record : context.flying) {
            if (record->deadline != 0 && !record->timeoutSeen && record->deadline <= now) {
                record->timeoutSeen = true;
                late.push_back({record, record->submissions, record->deadline});
            }
        }
    }
    // The earliest first: they complete in this order.
    std::sort(late.begin(), late.end(),
              [](const Late& one, const Late& other) { return one.deadline < other.deadline; });
    for (const Late& one : late) {
        cancelTransfer(*one.record, one.submission, true);
    }
}

void reapTransfers(libusb_context& context) {
    constexpr int kMost = 26;  // per pass, so that a program that resubmits in every callback still returns
    for (int reaped = 0; reaped < kMost; ++reaped) {
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
        removeFromFlying(*record);
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

}  // namespace sim
