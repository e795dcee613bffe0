/* The read thread of a HID device, from Open to Close and open again, as often as the caller likes.

   Follows HIDAccess::Open, Close, deleteHIDAccess and ReadThreadInternal, one access to a shared field at a time. The
   thread may begin at once or late, its start may fail, its input may not start, the device may go while it reads. A
   wait of Open or Close ends when what it waits for has happened; in some runs one wait, at any moment, runs out of
   time instead. A wait that nothing would end is an invalid end state.

   Seeded mistakes: THREAD_STORES_RUNS and THREAD_STORES_ENDED (instead of exchanging states of its own for them),
   CLOSE_STORES_STOPS (over an end that came by itself), CLOSE_TAKES_DEVICE (from a thread that has not ended). */

/* threadState; here the numbers begin at 0 */
#define NONE 0
#define RUNS 1
#define STOPS 2
#define ENDED 3
/* A close that runs out of time leaves a thread and a device behind, so that there may be two of each. Threads have the
   numbers from 0 on, devices those from 1 on; a number that is free is given out again. */
#define THREADS 2
#define NO_DEVICE 0
#define DEVICES 3

/* the object */
byte threadState = NONE;
byte device = NO_DEVICE;
byte threads; /* that have not left it */
bool freed;

/* the platform's devices, and the threads between the start and the stop of a device's input */
bool isOpen[DEVICES];
byte users[DEVICES];

bool lives[THREADS];
bool mayRunOut; /* some wait, once */
bool ranOut;
bool closing;

inline waitUntil(condition) {
    if
    :: condition
    :: atomic { mayRunOut -> mayRunOut = false; ranOut = true }
    fi
}

inline takeFree(number, first, taken) {
    atomic {
        number = first;
        do
        :: taken -> number++
        :: else -> break
        od;
        taken = true
    }
}

inline exchangeState(expected, wanted) {
    atomic {
        if
        :: threadState == expected -> threadState = wanted
        :: else
        fi
    }
}

/* The thread looks at both fields after each period. A period in which nothing changes is left out, so that a thread
   that reads on and on counts as standing still. */
inline runEvents() {
    if
    :: deviceGoes = true
    :: deviceGoes = false
    fi;
    do
    :: device != mine -> break
    :: threadState != RUNS -> break
    :: deviceGoes -> deviceGoes = false; deviceWent = true; exchangeState(RUNS, STOPS)
    od;
    assert(closing || deviceWent || ranOut) /* nothing else ends it */
}

inline tellEnd(lastState) {
    if
#ifdef THREAD_STORES_ENDED
    :: device == mine -> threadState = ENDED
#else
    :: device == mine -> exchangeState(lastState, ENDED); exchangeState(STOPS, ENDED)
#endif
    :: else
    fi
}

active [THREADS] proctype ReadThread() {
    byte me = _pid;
    byte mine = NO_DEVICE;
    bool deviceGoes = false; /* some time */
    bool deviceWent = false;
end:
    lives[me];
    assert(!freed);
    mine = device;
    if
    :: mine == NO_DEVICE -> goto leave
    :: else
    fi;
    if
    :: atomic { assert(isOpen[mine]); users[mine]++ } /* startInput */
    :: true -> tellEnd(NONE); goto leave
    fi;
    if
    :: device == mine ->
#ifdef THREAD_STORES_RUNS
        threadState = RUNS
#else
        exchangeState(NONE, RUNS)
#endif
    :: else
    fi;
    runEvents();
    atomic { assert(isOpen[mine]); users[mine]-- }; /* stopInput */
    tellEnd(STOPS);
leave:
    atomic { assert(!freed); threads--; mine = NO_DEVICE; deviceWent = false; lives[me] = false };
    goto end
}

inline open() {
    waitUntil(threadState == NONE);
    takeFree(place, 1, isOpen[place]);
    device = place;
    threads++;
    if
    :: isOpen[place] = false; threads--; device = NO_DEVICE /* the thread could not be started */
    :: takeFree(thread, 0, lives[thread])
    fi
}

inline close() {
    closing = true;
    waitUntil(threadState != NONE);
#ifdef CLOSE_STORES_STOPS
    threadState = STOPS;
#else
    exchangeState(NONE, STOPS);
    exchangeState(RUNS, STOPS);
#endif
    waitUntil(threadState == ENDED);
    ended = threadState == ENDED;
    device = NO_DEVICE;
    if
    :: ended -> !lives[thread] /* join */
    :: else
    fi;
#ifdef CLOSE_TAKES_DEVICE
    ended = true;
#endif
    if
    :: ended -> atomic { assert(users[place] == 0); isOpen[place] = false }
    :: else
    fi;
    threadState = NONE;
    assert(threads == 0 || ranOut); /* no thread runs on */
    closing = false
}

active proctype Caller() {
    byte place;
    byte thread;
    bool ended;
    if
    :: mayRunOut = true
    :: mayRunOut = false
    fi;
    do
    :: device == NO_DEVICE -> open()
    :: device != NO_DEVICE -> close()
    :: device == NO_DEVICE ->
        if
        :: threads == 0 -> freed = true /* deleteHIDAccess */
        :: else
        fi;
        break
    od
}
