#include "PollFds.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#ifdef __linux__
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#endif

#include "Checks.h"
#include "Events.h"
#include "Transfers.h"

namespace sim {

namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

}  // namespace

#ifdef __linux__

PollFds::PollFds()
    : readable_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      writable_(readable_),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      deadline_(kNever) {}

bool PollFds::hasTimer() {
    return true;
}

void PollFds::showDeadline() {
    constexpr std::int64_t kSecond = 1'000'000'000;
    itimerspec time{};
    if (deadline_ != kNever) {
        time.it_value = {deadline_ / kSecond, deadline_ % kSecond};
    }
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &time, nullptr);
}

#else

PollFds::PollFds() : deadline_(kNever) {
    int ends[2] = {-1, -1};
    if (pipe(ends) == 0) {
        readable_ = ends[0];
        writable_ = ends[1];
        for (const int end : ends) {
            fcntl(end, F_SETFD, FD_CLOEXEC);
        }
    }
}

bool PollFds::hasTimer() {
    return false;
}

void PollFds::showDeadline() {}

#endif

PollFds::~PollFds() {
    close(readable_);
    if (writable_ != readable_) {
        close(writable_);
    }
    if (timer_ >= 0) {
        close(timer_);
    }
}

void PollFds::showReady() {
    std::uint64_t word = 1;
    const ssize_t done = ready_ ? write(writable_, &word, sizeof word) : read(readable_, &word, sizeof word);
    static_cast<void>(done);  // a descriptor of our own that is in the other state
}

void PollFds::show(bool ready, std::int64_t deadline) {
    if (ready != ready_) {
        ready_ = ready;
        showReady();
    }
    if (deadline != deadline_) {
        deadline_ = deadline;
        showDeadline();
    }
}

std::vector<libusb_pollfd> PollFds::all() const {
    std::vector<libusb_pollfd> fds{{readable_, POLLIN}};
    if (timer_ >= 0) {
        fds.push_back({timer_, POLLIN});
    }
    return fds;
}

void wakeHandler(libusb_context& context) {
    context.wake.notify_all();
    showWork(context);
}

void showWork(libusb_context& context) {
    if (context.pollFds != nullptr) {
        context.pollFds->show(hasWork(context), nextDeadline(context));
    }
}

namespace {

/// The descriptors of a context, which are made at the first call. The state's lock is held.
PollFds& pollFdsOf(libusb_context& context) {
    if (context.pollFds == nullptr) {
        context.pollFds = std::make_unique<PollFds>();
        context.polled = true;
        showWork(context);
    }
    return *context.pollFds;
}

}  // namespace

}  // namespace sim

using sim::StateLock;

const libusb_pollfd** libusb_get_pollfds(libusb_context* given) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return nullptr;
    }
    // One block: the pointers, a null, and what they point to.
    const auto fds = sim::pollFdsOf(*context).all();
    const std::size_t pointers = (fds.size() + 1) * sizeof(void*);
    void* block = std::calloc(1, pointers + fds.size() * sizeof(libusb_pollfd));
    auto** list = static_cast<const libusb_pollfd**>(block);
    auto* copies = reinterpret_cast<libusb_pollfd*>(list + fds.size() + 1);
    for (std::size_t i = 0; i < fds.size(); ++i) {
        copies[i] = fds[i];
        list[i] = &copies[i];
    }
    return list;
}

void libusb_free_pollfds(const libusb_pollfd** list) {
    SIM_ENTER_VOID();
    std::free(list);
}

/// The descriptors of a context stay the same until its end, which is when the program is told that they go.
void libusb_set_pollfd_notifiers(libusb_context* given, libusb_pollfd_added_cb added,
                                 libusb_pollfd_removed_cb removed, void* userData) {
    SIM_ENTER_VOID();
    const StateLock lock(sim::state().mutex);
    libusb_context* context = sim::checkContext(__func__, given);
    if (context != nullptr) {
        sim::pollFdsOf(*context);
        static_cast<void>(added);
        context->pollFdRemoved = removed;
        context->pollFdUserData = userData;
    }
}

int libusb_pollfds_handle_timeouts(libusb_context* given) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    return sim::checkContext(__func__, given) != nullptr && sim::PollFds::hasTimer() ? 1 : 0;
}

/// Returns 0 where a descriptor tells of time-outs, as there the program need not care.
int libusb_get_next_timeout(libusb_context* given, timeval* time) {
    SIM_ENTER();
    const StateLock lock(sim::state().mutex);
    const libusb_context* context = sim::checkContext(__func__, given);
    if (context == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const std::int64_t deadline = sim::nextDeadline(*context);
    if (sim::PollFds::hasTimer() || deadline == sim::kNever) {
        return 0;
    }
    const std::int64_t microseconds = std::max<std::int64_t>(0, deadline - sim::nowNanoseconds()) / 1000;
    constexpr std::int64_t kSecond = 1'000'000;
    time->tv_sec = microseconds / kSecond;
    time->tv_usec = static_cast<decltype(time->tv_usec)>(microseconds % kSecond);
    return 1;
}
