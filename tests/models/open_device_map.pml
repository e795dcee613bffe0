/* A record that callers use while it is opened, closed, replaced on the bus, released with its list and deleted.

   Follows OpenDeviceMap, ActiveCall and RecordLifetime, one access to a shared field at a time; what the lock of the map
   guards is one step. The callers start as often as they like. The manager stands for the threads that open, close,
   update and release, which the program keeps apart. Nobody may touch a deleted record, or use a handle that is closed.

   Seeded mistakes: COUNTS_AFTER_LOCK (the look-up counts its caller too late), IGNORES_USERS (the deletion),
   IGNORES_MAP (the deletion, where the map still has the record), FORGETS_LATE (the close removes the record from the map
   at its end), CHECKS_ONCE (a caller does not look at isOpen again, once it is counted), CLOSES_BUSY (a handle that
   retireRecord gave up on). */

#define CALLERS 2

bool inMap;
byte users;

/* the record */
bool alive = true;
bool isOpen;
bool handle;
byte inside; /* activeCalls and the lanes that are in use */
bool held;   /* heldByCaller */
bool listed = true;
bool isRetired;

#define touch() assert(alive)

active [CALLERS] proctype caller() {
    bool found;
    bool open;
endCaller:
    do
    :: true ->
#ifdef COUNTS_AFTER_LOCK
        found = inMap;
        if
        :: found -> touch(); users++
        :: else
        fi;
#else
        atomic {
            found = inMap;
            if
            :: found -> touch(); users++
            :: else
            fi
        }
#endif
        if
        :: !found -> goto endCaller
        :: else
        fi;
        atomic { touch(); open = isOpen };
        if
        :: open ->
            atomic { touch(); inside++ };
#ifndef CHECKS_ONCE
            atomic { touch(); open = isOpen };
#endif
            if
            :: open -> atomic { touch(); assert(handle) }; /* the transfer begins */
                       atomic { touch(); assert(handle) } /* and ends */
            :: else
            fi;
            atomic { touch(); inside-- }
        :: else
        fi;
        atomic { touch(); users-- }
    od
}

/* Waits for the threads inside, or gives up. */
inline retireRecord() {
    isOpen = false;
    if
    :: inside == 0 -> isRetired = false
    :: isRetired = true
    fi
}

inline endOpenState() {
    if
    :: !isRetired -> handle = false
    :: else ->
#ifdef CLOSES_BUSY
        handle = false
#else
        skip
#endif
    fi
}

inline retireAndEnd() {
    if
    :: handle -> retireRecord(); endOpenState()
    :: else
    fi
}

/* Deletes a record that is in no list, unless something refers to it. */
inline deleteUnlinked() {
    if
    :: handle -> skip
#ifndef IGNORES_MAP
    :: !handle && held -> skip
#endif
#ifndef IGNORES_USERS
    :: !handle && users != 0 -> skip
#endif
    :: else -> /* the counts are read one after the other */
        if
        :: inside == 0 -> alive = false
        :: else
        fi
    fi
}

inline endRetiredRecords() {
    if
    :: isRetired && inside == 0 -> isRetired = false; handle = false
    :: else
    fi;
    if
    :: !listed -> deleteUnlinked()
    :: else
    fi
}

inline closeRecord() {
    held = false;
    if
    :: isOpen -> retireRecord(); endOpenState()
    :: else ->
        retireAndEnd();
        endRetiredRecords()
    fi
}

active proctype manager() {
    bool taken;
endManager:
    do
    :: !alive -> break
    :: alive && listed && !isOpen -> /* usbOpenDevice */
        retireAndEnd();
        if
        :: !handle -> handle = true; held = true; isOpen = true; inMap = true
        :: else
        fi
    :: alive -> /* usbCloseDevice */
#ifdef FORGETS_LATE
        taken = inMap;
#else
        atomic { taken = inMap; inMap = false };
#endif
        if
        :: taken -> closeRecord()
        :: else -> endRetiredRecords()
        fi;
#ifdef FORGETS_LATE
        inMap = false
#endif
    :: alive && listed -> isOpen = false /* usbUpdateDeviceList, which finds the device replaced */
    :: alive && listed -> /* usbReleaseDeviceList */
        retireRecord();
        endOpenState();
        listed = false;
        deleteUnlinked()
    od
}
