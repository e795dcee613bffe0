// Asynchronous transfers inside the library.
#pragma once

#include <functional>

#include "Objects.h"

namespace sim {

// --- With the state's lock not held.
TransferRecord& allocateTransfer(int isochronousPackets);
void freeTransfer(TransferRecord& record);
int submitTransfer(TransferRecord& record);
// `submission`: only if it still is that one; 0 means whichever. LIBUSB_ERROR_NOT_FOUND when there is none to
// cancel.
int cancelTransfer(TransferRecord& record, std::uint64_t submission = 0, bool timedOut = false);
// Cancels those whose time is over; their callbacks come when events are handled next.
void expireTransfers(libusb_context& context);
// Takes the transfers that finished and calls their callbacks, some at most.
void reapTransfers(libusb_context& context);
// The bus is done with the transfer: it waits for a thread that handles events.
void transferFinished(TransferRecord& record);
// Stops transfers on the bus without the caller having asked for it.
void stopOnBus(const std::vector<TransferRecord*>& records);

// --- With the state's lock held.
void removeFromFlying(TransferRecord& record);
using Selection = std::function<bool(const TransferRecord&)>;
std::vector<TransferRecord*> flyingTransfers(const libusb_context& context, const Selection& selected);
// Cuts off transfers in flight: their callbacks will not be called. To be stopped on the bus when the lock is
// let go.
std::vector<TransferRecord*> abandonTransfers(libusb_context& context, const Selection& selected);
// When the next of them times out, in nanoseconds of the steady clock.
std::int64_t nextDeadline(const libusb_context& context);

std::int64_t nowNanoseconds();

}  // namespace sim
