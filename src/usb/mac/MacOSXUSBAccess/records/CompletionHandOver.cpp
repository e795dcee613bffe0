#include "MacOSXUSBAccess/records/CompletionHandOver.h"

#include <libusb.h>

#include <atomic>
#include <chrono>

#include "ground/SharedField.h"

namespace {

std::atomic<int32_t> g_unseenCompletions{0};

/// Set when a wait begins, cleared by the event thread. Relaxed order is enough: a check that misses the
/// value sees it the next time.
std::atomic<bool> g_waitBegan{false};

constexpr std::chrono::milliseconds kPauseAfterError{5};
constexpr std::chrono::milliseconds kPauseForWaiters{10};

/// Runs one round of event handling, hands over completions, and pauses after an error. A null context never
/// reaches libusb.
template <class Round>
int handOverAfter(libusb_context* context, Round round) {
    const int result = context == nullptr ? LIBUSB_ERROR_INVALID_PARAM : round();
    handOverCompletions(context);
    if (result < 0 && result != LIBUSB_ERROR_INTERRUPTED) {
        std::this_thread::sleep_for(kPauseAfterError);
    }
    return result;
}

}  // namespace

void handOverCompletions(libusb_context* context) {
    if (context != nullptr && g_unseenCompletions.load() > 0) {
        libusb_interrupt_event_handler(context);
    }
}

int handleEvents(libusb_context* context) {
    return handOverAfter(context, [&] { return libusb_handle_events(context); });
}

int handleEventsFor(libusb_context* context, timeval period) {
    return handOverAfter(context,
                         [&] { return libusb_handle_events_timeout_completed(context, &period, nullptr); });
}

void announceWait() {
    g_waitBegan.store(true, std::memory_order_relaxed);
}

bool leaveEventsToWaiters() {
    const bool left = g_waitBegan.load(std::memory_order_relaxed);
    if (left) {
        g_waitBegan.store(false, std::memory_order_relaxed);
        std::this_thread::sleep_for(kPauseForWaiters);
    }
    return left;
}

void startWait(EndpointLane& lane) {
    lane.waiter = std::this_thread::get_id();
    lane.completedElsewhere = false;
}

void finishPending(EndpointLane& lane) {
    lane.completedElsewhere = lane.waiter != std::this_thread::get_id();
    if (lane.completedElsewhere) {
        g_unseenCompletions.fetch_add(1);
    }
    storeShared(lane.record->isPending, 0);
}

void waitWhilePending(EndpointLane& lane, libusb_context* context) {
    announceWait();
    while (loadShared(lane.record->isPending) != 0) {
        handleEvents(context);
    }
    if (lane.completedElsewhere) {
        g_unseenCompletions.fetch_sub(1);
    }
}
