#include "MacOSXUSBAccess/records/CompletionHandOver.h"

#include <libusb.h>

#include <atomic>
#include <chrono>

#include "MacOSXUSBAccess/records/SharedField.h"

namespace {

std::atomic<int32_t> g_unseenCompletions{0};

constexpr std::chrono::milliseconds kPauseAfterError{5};

/// Runs one round of event handling and does what has to follow it. A null context never reaches libusb.
template <class Round>
int handOverAfter(libusb_context* context, Round round) {
    const int result = context == nullptr ? LIBUSB_ERROR_INVALID_PARAM : round();
    if (context != nullptr && g_unseenCompletions.load() > 0) {
        libusb_interrupt_event_handler(context);
    }
    if (result < 0 && result != LIBUSB_ERROR_INTERRUPTED) {
        std::this_thread::sleep_for(kPauseAfterError);
    }
    return result;
}

}  // namespace

int handleEvents(libusb_context* context) {
    return handOverAfter(context, [&] { return libusb_handle_events(context); });
}

int handleEventsFor(libusb_context* context, timeval period) {
    return handOverAfter(context,
                         [&] { return libusb_handle_events_timeout_completed(context, &period, nullptr); });
}

void startWait(TransferRecord& record) {
    record.waiter = std::this_thread::get_id();
    record.completedElsewhere = false;
}

void finishPending(TransferRecord& record) {
    record.completedElsewhere = record.waiter != std::this_thread::get_id();
    if (record.completedElsewhere) {
        g_unseenCompletions.fetch_add(1);
    }
    storeShared(record.isPending, 0);
}

void waitWhilePending(TransferRecord& record, libusb_context* context) {
    while (loadShared(record.isPending) != 0) {
        handleEvents(context);
    }
    if (record.completedElsewhere) {
        g_unseenCompletions.fetch_sub(1);
    }
}
