#pragma once

#include <sys/time.h>

#include "ground/DeviceRecords.h"

// Wakes waiters whose transfers were completed by another thread.
//
// A waiter checks isPending and then enters libusb's event handling. If another thread that handles events
// completes the transfer between the two, libusb has no reason left to wake the waiter: it sleeps until the
// period of the current event handler ends (a second for the event thread), or becomes the event handler
// itself and sleeps for up to a minute.
//
// So completions are handed over. A process-wide count holds the number of transfers that were completed on a
// thread other than their waiter's and not yet seen by the waiter. The completion callback increments it
// before it clears isPending; the waiter decrements it after it has seen isPending cleared. Every thread of
// the library that returns from event handling interrupts the next event handler while the count is above
// zero, before it does anything else. So no handler sleeps while a waiter has not seen its completion. A
// thread must check the count after event handling, not before: checked before, it leaves one of two waiters
// asleep.
//
// The synchronous requests of an enumeration handle events inside libusb, in a loop, until they complete. The
// library can check the count only after they return: a waiter whose transfer completes in such a loop may
// sleep until the request completes or times out, a second at most.
//
// Handing a completion to another thread costs about a hundred times as much as handling it in the waiter. So
// the event thread pauses while transfers follow each other, and the waiters handle all events meanwhile,
// hotplug events included.

/// Calls libusb_handle_events on the context and hands over completions. Returns libusb's code. After an
/// error the thread pauses for 5 milliseconds, so that a context that keeps failing does not occupy a core.
int handleEvents(libusb_context* context);
/// The same for at most `period`, through libusb_handle_events_timeout_completed.
int handleEventsFor(libusb_context* context, timeval period);

/// Interrupts the context's next event handler while a waiter has not seen its completion. To be called after
/// a synchronous libusb request, which handles the context's events. Null is allowed.
void handOverCompletions(libusb_context* context);

/// Announces that the calling thread is about to wait for a transfer, its own or that of a synchronous
/// request.
void announceWait();
/// Called by the event thread before each round of event handling. If a wait was announced since the last
/// call, sleeps for 10 milliseconds and returns true: the thread then skips the round. A long wait is
/// announced only once and does not keep the event thread away.
bool leaveEventsToWaiters();

/// Makes the calling thread the waiter of the lane's transfer. To be called before submission.
void startWait(EndpointLane& lane);
/// Clears the pending state of the lane's transfer. Called by the completion callback, on whichever thread it
/// runs.
void finishPending(EndpointLane& lane);
/// Handles the context's events until the lane's transfer is no longer pending.
void waitWhilePending(EndpointLane& lane, libusb_context* context);
