package com.talvane.orvex.comm.access;

import jdk.jfr.Description;
import jdk.jfr.EventType;
import jdk.jfr.Label;
import jdk.jfr.Name;

/** The update of a list, as a flight recorder gets it. */
@Name("com.talvane.orvex.ListUpdate")
@Label("USB List Update")
@Description("A look at the bus by a program, by the listeners of a session, or after a transfer that failed")
final class ListEvent extends UsbEvent {
    private static final EventType TYPE = EventType.getEventType(ListEvent.class);

    @Label("Came")
    @Description("Devices that are there and were not at the look before")
    int came;

    @Label("Left")
    @Description("Devices that were there at the look before and are gone")
    int left;

    static Flight start() {
        if (!TYPE.isEnabled()) {
            return NONE;
        }
        ListEvent event = new ListEvent();
        event.begin();
        return event;
    }

    @Override
    void count(int arrived, int gone) {
        came = arrived;
        left = gone;
    }
}
