#pragma once

#include <sys/time.h>

#include "ground/DeviceRecords.h"

// Nobody sleeps over a finished transfer.
//
// A waiter looks at its transfer's isPending and then enters libusb's event handling. When another thread
// that handles events completes the transfer between the two, libusb has nothing left to wake the waiter for:
// it goes to sleep behind the current event handler until that one's period ends (a second behind the event
// thread), or becomes the handler itself and sleeps for up to a minute.
//
// So completions are handed over. One process-wide count tells how many transfers were completed on another
// thread than their waiter's and not yet seen by it. The callback adds one before it takes isPending down;
// the waiter takes one away once it has seen that. Every thread of the library that comes back from event
// handling interrupts the next handler as long as the count is above zero, before it does anything else: no
// handler stays asleep while some waiter has not been told. The order matters: looking at the count before
// event handling instead of after it leaves a waiter asleep as soon as there are two.
//
// libusb's own blocking requests, those of a listing, handle events as well, round after round until they are
// answered. The library gets to look at the count only behind the last one: a waiter whose transfer such a
// round completes may sleep until the request is answered or its time is up, a second at most.
//
// A completion that goes from thread to thread costs a hundred times what it costs the waiter to see to it
// alone. So the event thread stays away while transfers follow each other: their waiters handle all events
// meanwhile, hotplug events too.

/// libusb_handle_events on the context, with the hand-over behind it. Returns libusb's code. After an error
/// the thread pauses for a few milliseconds, so that a context that keeps failing does not take a whole core.
int handleEvents(libusb_context* context);
/// The same for at most `period`, through libusb_handle_events_timeout_completed.
int handleEventsFor(libusb_context* context, timeval period);

/// For a thread that comes back from a call in which libusb handles the context's events by itself. Null is
/// allowed.
void handOverCompletions(libusb_context* context);

/// The calling thread is about to wait for a transfer, its own or one inside of libusb.
void announceWait();
/// For the event thread, before each round: when a wait was announced since the last call, pauses for some
/// milliseconds instead and returns true; then the round is to be left out. A wait that goes on for longer
/// keeps nobody away.
bool leaveEventsToWaiters();

/// The calling thread is the one that will wait for the lane's transfer. Call before submission.
void startWait(EndpointLane& lane);
/// Ends the transfer's pending state, for the completion callback, on whichever thread it runs.
void finishPending(EndpointLane& lane);
/// Waits until the transfer is no longer pending; handles the context's events meanwhile.
void waitWhilePending(EndpointLane& lane, libusb_context* context);
