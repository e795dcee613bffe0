package com.talvane.orvex.comm.access;

import jdk.jfr.Description;
import jdk.jfr.EventType;
import jdk.jfr.Label;
import jdk.jfr.Name;

/** An open, close or reset, as a flight recorder gets it. */
@Name("com.talvane.orvex.Device")
@Label("USB Device")
@Description("An open, close or reset of a device, with the wait for its turn")
final class DeviceEvent extends UsbEvent {
    private static final EventType TYPE = EventType.getEventType(DeviceEvent.class);

    @Label("Device")
    @Description("The serial number, or the place in the list when it has none")
    String device;

    @Label("Call")
    @Description("open, close or reset")
    String call;

    static Flight start(String call, String device) {
        if (!TYPE.isEnabled()) {
            return NONE;
        }
        DeviceEvent event = new DeviceEvent();
        event.device = device;
        event.call = call;
        event.begin();
        return event;
    }
}
