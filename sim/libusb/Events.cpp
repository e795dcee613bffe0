#include "Events.h"

#include <algorithm>
#include <cerrno>

#include "Checks.h"
#include "Transfers.h"

namespace sim {

namespace {

using std::chrono::nanoseconds;

/// Takes the waiters' lock and records its holder for the checks.
void lockWaiters(libusb_context& context) {
    context.waitersMutex.lock();
    const StateLock lock(state().mutex);
    context.waitersOwner = std::this_thread::get_id();
}

void unlockWaiters(libusb_context& context) {
    {
        const StateLock lock(state().mutex);
        context.waitersOwner = std::thread::id();
    }
    context.waitersMutex.unlock();
}

/// Sleeps until the event handler leaves. The waiters' lock is held before and after, but not during the
/// sleep. Returns true on time-out.
bool waitForHandlerToLeave(libusb_context& context, nanoseconds timeout) {
    std::unique_lock<std::mutex> waiters(context.waitersMutex, std::adopt_lock);
    const bool timedOut = context.waiters.wait_for(waiters, timeout) == std::cv_status::timeout;
    waiters.release();
    const StateLock lock(state().mutex);
    context.waitersOwner = std::this_thread::get_id();
    return timedOut;
}

bool isSet(const int* completed) {
    return completed != nullptr && __atomic_load_n(completed, __ATOMIC_ACQUIRE) != 0;
}

bool handlerActive(const libusb_context& context) {
    return context.closing != 0 || context.handlerActive;
}

bool triggered(const libusb_context& context) {
    return context.interrupted || context.deregistered || context.sourcesChanged || context.closing != 0 ||
           !context.messages.empty() || !context.inUse;
}

/// The result of one wait for work, as of the moment at which the wait ended: work that comes up meanwhile is
/// left for the next pass.
struct Work {
    bool trigger;
    bool timer;
    bool transfers;
};

Work waitForWork(libusb_context& context, nanoseconds timeout) {
    StateLock lock(state().mutex);
    context.sourcesChanged = false;  // this pass includes the devices that are open now
    const std::int64_t end = nowNanoseconds() + timeout.count();
    for (;;) {
        const std::int64_t now = nowNanoseconds();
        const std::int64_t timer = nextDeadline(context);
        const Work work{triggered(context), timer <= now, !context.finished.empty()};
        if (work.trigger || work.timer || work.transfers || end <= now) {
            return work;
        }
        context.wake.wait_until(lock,
                                std::chrono::steady_clock::time_point(nanoseconds(std::min(timer, end))));
    }
}

}  // namespace

bool hasWork(const libusb_context& context) {
    return triggered(context) || !context.finished.empty();
}

void handleOnce(libusb_context& context, nanoseconds timeout) {
    threadState().handling = &context;
    const Work work = waitForWork(context, timeout);
    if (work.trigger) {
        processHotplug(context);
    }
    if (work.timer) {
        expireTransfers(context);
    }
    if (work.transfers) {
        reapTransfers(context);
        errno = EAGAIN;  // as when a kernel has no further transfer that has ended; programs print it
    }
    threadState().handling = nullptr;
    if (context.polled.load(std::memory_order_relaxed)) {
        const StateLock lock(state().mutex);
        showWork(context);
    }
}

void lockEvents(libusb_context& context) {
    StateLock lock(state().mutex);
    context.eventsFree.wait(lock, [&] { return context.eventsOwner == std::thread::id(); });
    context.eventsOwner = std::this_thread::get_id();
    context.handlerActive = true;
}

bool tryLockEvents(libusb_context& context) {
    const StateLock lock(state().mutex);
    if (context.closing != 0 || context.eventsOwner != std::thread::id()) {
        return false;
    }
    context.eventsOwner = std::this_thread::get_id();
    context.handlerActive = true;
    return true;
}

void unlockEvents(libusb_context& context) {
    {
        const StateLock lock(state().mutex);
        context.handlerActive = false;
        context.eventsOwner = std::thread::id();
        context.eventsFree.notify_all();
    }
    const std::lock_guard<std::mutex> waiters(context.waitersMutex);
    context.waiters.notify_all();
}

int handleEvents(libusb_context& context, nanoseconds timeout, const int* completed) {
    for (;;) {
        if (tryLockEvents(context)) {
            if (!isSet(completed)) {
                handleOnce(context, timeout);
            }
            unlockEvents(context);
            return LIBUSB_SUCCESS;
        }
        // Another thread handles events and wakes waiters only when it leaves: a completion after the
        // caller's last check goes unnoticed until then.
        lockWaiters(context);
        if (isSet(completed)) {
            unlockWaiters(context);
            return LIBUSB_SUCCESS;
        }
        StateLock lock(state().mutex);
        const bool someoneHandles = handlerActive(context);
        lock.unlock();
        const bool timedOut = someoneHandles && waitForHandlerToLeave(context, timeout);
        unlockWaiters(context);
        if (timedOut) {
            expireTransfers(context);
        }
        if (someoneHandles) {
            return LIBUSB_SUCCESS;
        }
    }
}

namespace {

constexpr nanoseconds kAMinute = std::chrono::seconds(60);

bool isValid(const timeval* time) {
    return time->tv_sec >= 0 && time->tv_usec >= 0 && time->tv_usec < 1'000'000;
}

nanoseconds durationOf(const timeval& time) {
    constexpr std::int64_t kAYear = 31'536'000;  // effectively no limit, without overflow
    return std::chrono::seconds(std::min<std::int64_t>(time.tv_sec, kAYear)) +
           std::chrono::microseconds(time.tv_usec);
}

libusb_context* contextThatMayWait(const char* function, libusb_context* given, int& error) {
    const StateLock lock(state().mutex);
    libusb_context* context = checkContext(function, given);
    error = context == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_SUCCESS;
    if (context != nullptr && !checkMayWait(function)) {
        error = LIBUSB_ERROR_BUSY;
    }
    return context;
}

int checkAndHandle(const char* function, libusb_context* given, const timeval* time, const int* completed) {
    if (time != nullptr && !isValid(time)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    int error = LIBUSB_SUCCESS;
    libusb_context* context = contextThatMayWait(function, given, error);
    return error != LIBUSB_SUCCESS
               ? error
               : handleEvents(*context, time == nullptr ? kAMinute : durationOf(*time), completed);
}

}  // namespace

}  // namespace sim

using sim::StateLock;

int libusb_handle_events(libusb_context* context) {
    SIM_ENTER();
    return sim::checkAndHandle(__func__, context, nullptr, nullptr);
}

int libusb_handle_events_completed(libusb_context* context, int* completed) {
    SIM_ENTER();
    return sim::checkAndHandle(__func__, context, nullptr, completed);
}

int libusb_handle_events_timeout(libusb_context* context, timeval* time) {
    SIM_ENTER();
    return sim::checkAndHandle(__func__, context, time, nullptr);
}

int libusb_handle_events_timeout_completed(libusb_context* context, timeval* time, int* completed) {
    SIM_ENTER();
    return sim::checkAndHandle(__func__, context, time, completed);
}

int libusb_handle_events_locked(libusb_context* given, timeval* time) {
    SIM_ENTER();
    if (time != nullptr && !sim::isValid(time)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    {
        const StateLock lock(sim::state().mutex);
        libusb_context* context = sim::checkContext(__func__, given);
        if (context == nullptr) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        if (context->eventsOwner != std::this_thread::get_id()) {
            sim::violation(__func__, "the calling thread does not hold the events lock");
            return LIBUSB_ERROR_OTHER;
        }
        given = context;
    }
    sim::handleOnce(*given, time == nullptr ? sim::kAMinute : sim::durationOf(*time));
    return LIBUSB_SUCCESS;
}

int libusb_try_lock_events(libusb_context* given) {
    SIM_ENTER();
    int error = LIBUSB_SUCCESS;
    libusb_context* context = sim::contextThatMayWait(__func__, given, error);
    return error == LIBUSB_SUCCESS && sim::tryLockEvents(*context) ? 0 : 1;
}

void libusb_lock_events(libusb_context* given) {
    SIM_ENTER_VOID();
    int error = LIBUSB_SUCCESS;
    libusb_context* context = sim::contextThatMayWait(__func__, given, error);
    if (error == LIBUSB_SUCCESS) {
        sim::lockEvents(*context);
    }
}

void libusb_unlock_events(libusb_context* given) {
    SIM_ENTER_VOID();
    StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return;
    }
    if (context->eventsOwner != std::this_thread::get_id()) {
        sim::violation(__func__, "the calling thread does not hold the events lock");
        return;
    }
    lock.unlock();
    sim::unlockEvents(*context);
}

int libusb_event_handling_ok(libusb_context* given) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_context* context = sim::checkContext(__func__, given);
    return context != nullptr && context->closing == 0 ? 1 : 0;
}

int libusb_event_handler_active(libusb_context* given) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_context* context = sim::checkContext(__func__, given);
    return context != nullptr && sim::handlerActive(*context) ? 1 : 0;
}

void libusb_lock_event_waiters(libusb_context* given) {
    SIM_ENTER_VOID();
    int error = LIBUSB_SUCCESS;
    libusb_context* context = sim::contextThatMayWait(__func__, given, error);
    if (error == LIBUSB_SUCCESS) {
        sim::lockWaiters(*context);
    }
}

namespace sim {
namespace {

/// Returns the context if the calling thread holds its waiters' lock; otherwise records a violation and
/// returns null.
libusb_context* contextWithWaitersLock(const char* function, libusb_context* given) {
    const StateLock lock(state().mutex);
    libusb_context* context = checkContext(function, given);
    if (context != nullptr && context->waitersOwner != std::this_thread::get_id()) {
        violation(function, "the calling thread does not hold the event waiters lock");
        return nullptr;
    }
    return context;
}

}  // namespace
}  // namespace sim

void libusb_unlock_event_waiters(libusb_context* given) {
    SIM_ENTER_VOID();
    if (libusb_context* context = sim::contextWithWaitersLock(__func__, given); context != nullptr) {
        sim::unlockWaiters(*context);
    }
}

int libusb_wait_for_event(libusb_context* given, timeval* time) {
    SIM_ENTER();
    libusb_context* context = sim::contextWithWaitersLock(__func__, given);
    if (context == nullptr || (time != nullptr && !sim::isValid(time))) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    constexpr auto kForEver = std::chrono::hours(24 * 365);
    return sim::waitForHandlerToLeave(*context, time == nullptr ? kForEver : sim::durationOf(*time)) ? 1 : 0;
}

void libusb_interrupt_event_handler(libusb_context* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context != nullptr) {
        context->interrupted = true;
        sim::wakeHandler(*context);
    }
}
