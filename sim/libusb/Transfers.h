// Asynchronous transfers inside the library.
#pragma once

#include <functional>

#include "Objects.h"

namespace sim {

// --- With the state's lock not held.
TransferRecord& allocateTransfer(int isochronousPackets);
void freeTransfer(TransferRecord& record);
int submitTransfer(TransferRecord& record);
/// Cancels the transfer if `submission` is still its current submission; 0 means any. Returns
/// LIBUSB_ERROR_NOT_FOUND when there is none to cancel.
int cancelTransfer(TransferRecord& record, std::uint64_t submission = 0, bool timedOut = false);
/// Cancels the transfers that have timed out; their callbacks run when events are handled next.
void expireTransfers(libusb_context& context);
/// Calls the callbacks of finished transfers, a limited number per call.
void reapTransfers(libusb_context& context);
/// Called when the bus has finished the transfer: it now waits for a thread that handles events.
void transferFinished(TransferRecord& record);
/// Stops transfers on the bus that the caller has not cancelled.
void stopOnBus(const std::vector<TransferRecord*>& records);

// --- With the state's lock held.
void removeFromFlying(TransferRecord& record);
using Selection = std::function<bool(const TransferRecord&)>;
std::vector<TransferRecord*> flyingTransfers(const libusb_context& context, const Selection& selected);
/// Abandons transfers in flight: their callbacks will not run. The caller stops them on the bus after it has
/// released the lock.
std::vector<TransferRecord*> abandonTransfers(libusb_context& context, const Selection& selected);
/// The time at which the next of them times out, in nanoseconds of the steady clock.
std::int64_t nextDeadline(const libusb_context& context);

std::int64_t nowNanoseconds();

}  // namespace sim
