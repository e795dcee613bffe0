package com.talvane.orvex.comm.access;

import java.util.HexFormat;
import jdk.jfr.DataAmount;
import jdk.jfr.Description;
import jdk.jfr.EventType;
import jdk.jfr.Label;
import jdk.jfr.Name;

/** A transfer, as a flight recorder gets it. */
@Name("com.talvane.orvex.Transfer")
@Label("USB Transfer")
@Description("A bulk, interrupt or control transfer or a transfer of HID reports, with the wait for its turn")
final class TransferEvent extends UsbEvent {
    private static final EventType TYPE = EventType.getEventType(TransferEvent.class);

    @Label("Device")
    @Description("The serial number, or the place in the list when it has none")
    String device;

    @Label("Kind")
    @Description("pipe, control or reports")
    String kind;

    @Label("Direction")
    @Description("in from the device, out to the device")
    String direction;

    @Label("Endpoint")
    @Description("The address; 0x00 or 0x80 for control requests and reports")
    String endpoint;

    @Label("Bytes Asked")
    @DataAmount
    int asked;

    @Label("Bytes Moved")
    @DataAmount
    int moved;

    static Flight start(String kind, String device, int endpoint, int asked) {
        if (!TYPE.isEnabled()) {
            return NONE;
        }
        TransferEvent event = new TransferEvent();
        event.device = device;
        event.kind = kind;
        event.direction = (endpoint & Setup.IN) != 0 ? "in" : "out";
        event.endpoint = "0x" + HexFormat.of().withUpperCase().toHexDigits((byte) endpoint);
        event.asked = asked;
        event.begin();
        return event;
    }

    @Override
    void count(int bytes, int none) {
        moved = bytes;
    }
}
