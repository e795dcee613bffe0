/* Nobody sleeps over a finished transfer: two threads that wait for their transfers, the event thread, and a listing,
   whose requests libusb waits for itself.

   Follows CompletionHandOver, TransferEngine and the event handling of libusb: one thread handles events at a time and
   sleeps until there is something to do; the others sleep until it leaves. No sleep ends by time, so a thread that the
   library would wake only at the end of a handler's period stays asleep here for ever. Waiters start over as often as
   they like, the device finishes transfers in any order or stops for good, the event thread runs or does not. That it
   pauses while others wait needs no step of its own: a thread may always be slow. The listing's request is always
   answered, by the device or by its time-out.

   Seeded mistakes: NO_HAND_OVER, LOOK_BEFORE (at the count, instead of after event handling), LATE_COUNT (isPending is
   taken down first), SILENT_LISTING (that does not look at the count behind its requests). */

#define WAITERS 2
#define EVENT_THREAD 2 /* threads are the waiters 0 and 1, this one and the next */
#define LISTING 3
#define THREADS 4
#define NOBODY 4

/* libusb's context */
byte handler = NOBODY; /* holds the events lock */
bool waitersLocked;
bool interrupted;
bool asleep[THREADS]; /* behind the handler, until it leaves */

/* transfer 0 belongs to waiter 0, transfer 1 to waiter 1 */
bool submitted[WAITERS]; /* with the device */
bool finished[WAITERS];  /* by the device; the next handler has to tell */
bool isPending[WAITERS];
bool completedElsewhere[WAITERS];
byte unseenCompletions;

/* the request of the listing */
bool requested; /* with the device */
bool answered;  /* by the device or the time-out; the next handler has to tell */
bool hasAnswer; /* the listing knows */

inline lockWaiters() { atomic { !waitersLocked -> waitersLocked = true } }
inline unlockWaiters() { waitersLocked = false }

/* The completion callback of transfer t, on thread me. */
inline finishPending(t) {
    completedElsewhere[t] = t != me;
#ifdef LATE_COUNT
    isPending[t] = false;
#endif
    if
    :: completedElsewhere[t] -> unseenCompletions++
    :: else
    fi;
#ifndef LATE_COUNT
    isPending[t] = false
#endif
}

/* One pass of the handler. What it found when it woke up is all that it deals with. */
inline handleOnce() {
    bool trigger, first, second, third;
endHandles:
    atomic {
        interrupted || finished[0] || finished[1] || answered ->
        trigger = interrupted;
        first = finished[0];
        second = finished[1];
        third = answered
    }
    if
    :: trigger -> interrupted = false
    :: else
    fi;
    if
    :: first -> finished[0] = false; finishPending(0)
    :: else
    fi;
    if
    :: second -> finished[1] = false; finishPending(1)
    :: else
    fi;
    if
    :: third -> answered = false; hasAnswer = true
    :: else
    fi
}

/* The thread that got the events lock: one pass, and everybody who sleeps behind it is woken. */
inline handleAsTheOne() {
    handleOnce();
    handler = NOBODY;
    lockWaiters();
    atomic { asleep[0] = false; asleep[1] = false; asleep[2] = false; asleep[3] = false };
    unlockWaiters()
}

/* libusb_handle_events. */
inline libusbHandleEvents() {
    bool handledOrSlept = false;
    do
    :: handledOrSlept -> break
    :: else ->
        if
        :: atomic { handler == NOBODY -> handler = me };
            handleAsTheOne();
            handledOrSlept = true
        :: handler != NOBODY ->
            lockWaiters();
            if
            :: atomic { handler != NOBODY -> asleep[me] = true; waitersLocked = false };
endSleeps:
                !asleep[me];
                lockWaiters();
                unlockWaiters();
                handledOrSlept = true
            :: handler == NOBODY -> unlockWaiters()
            fi
        fi
    od
}

/* libusb_control_transfer: libusb looks for the answer once more before it sleeps. */
inline libusbRequest() {
    hasAnswer = false;
    requested = true;
    do
    :: hasAnswer -> break
    :: atomic { !hasAnswer && handler == NOBODY -> handler = me };
        handleAsTheOne()
    :: !hasAnswer && handler != NOBODY ->
        lockWaiters();
        if
        :: atomic { handler != NOBODY && !hasAnswer -> asleep[me] = true; waitersLocked = false };
endWaits:
            !asleep[me]
        :: handler == NOBODY || hasAnswer -> unlockWaiters()
        fi
    od
}

inline interruptWhenUnseen() {
    if
    :: unseenCompletions > 0 -> interrupted = true
    :: else
    fi
}

/* handleEvents and handleEventsFor of the library. */
inline handleEvents() {
#ifdef LOOK_BEFORE
    interruptWhenUnseen();
#endif
    libusbHandleEvents();
#if !defined(NO_HAND_OVER) && !defined(LOOK_BEFORE)
    interruptWhenUnseen()
#endif
}

proctype Waiter(byte me) {
    do
    :: true ->
        completedElsewhere[me] = false; /* startWait */
        isPending[me] = true;
        submitted[me] = true;
        do
        :: isPending[me] -> handleEvents()
        :: !isPending[me] -> break
        od;
        if
        :: completedElsewhere[me] -> assert(unseenCompletions > 0); unseenCompletions--
        :: else
        fi
    :: true -> break /* no more transfers */
    od
}

proctype EventThread(byte me) {
    do
    :: true -> handleEvents()
    od
}

/* In the place of one of the waiters, or there would be more states than can be searched. */
proctype Listing(byte me) {
    do
    :: true ->
        libusbRequest();
#ifndef SILENT_LISTING
        interruptWhenUnseen()
#endif
    :: true -> break /* no more requests */
    od
}

proctype Answers() {
endAnswers:
    do
    :: atomic { requested -> requested = false; answered = true }
    od
}

proctype TheDevice() {
    do
    :: atomic { submitted[0] -> submitted[0] = false; finished[0] = true }
    :: atomic { submitted[1] -> submitted[1] = false; finished[1] = true }
    :: true -> break /* the transfers that are under way stay so */
    od
}

/* When nobody can do anything any more, every waiter that sleeps does so over a transfer that the device still has. */
active proctype Stillness() {
    timeout ->
    assert(!isPending[0] || submitted[0]);
    assert(!isPending[1] || submitted[1]);
    assert(!(asleep[0] && !isPending[0]) && !(asleep[1] && !isPending[1]));
    assert(!(handler == 0 && !isPending[0]) && !(handler == 1 && !isPending[1]))
}

init {
    atomic {
        run TheDevice();
        if
        :: run EventThread(EVENT_THREAD)
        :: true /* nobody but the others handles events */
        fi;
        if
        :: run Waiter(0); run Waiter(1)
        :: run Waiter(0); run Listing(LISTING); run Answers()
        :: run Waiter(1); run Listing(LISTING); run Answers()
        fi
    }
}
