// File descriptors by which a program's own event loop learns that a context has events to handle. They exist
// from the first time that the program asks for them, so that others do not pay for them.
#pragma once

#include <cstdint>
#include <vector>

#include "LibusbApi.h"

namespace sim {

/// On Linux two descriptors to be polled for input, as the real library has beside those of its devices: an
/// eventfd, readable while there is something to handle, and a timerfd, readable when a transfer has timed
/// out. On other systems a pipe in place of the eventfd, and no timer. Not locked.
class PollFds {
 public:
    PollFds();
    ~PollFds();
    PollFds(const PollFds&) = delete;
    PollFds& operator=(const PollFds&) = delete;

    static bool hasTimer();  ///< whether time-outs have a descriptor

    /// `deadline` is in nanoseconds of the steady clock, the largest value for none.
    void show(bool ready, std::int64_t deadline);
    std::vector<libusb_pollfd> all() const;

 private:
    void showReady();
    void showDeadline();

    int readable_ = -1;
    int writable_ = -1;  ///< the same as readable_, but for a pipe
    int timer_ = -1;
    bool ready_ = false;
    std::int64_t deadline_;
};

/// Wakes the thread that handles the events of a context, and a foreign event loop. The state's lock is held.
void wakeHandler(libusb_context& context);
/// Tells a foreign event loop what there is to handle. The state's lock is held.
void showWork(libusb_context& context);

}  // namespace sim
