package com.talvane.orvex.comm.tool;

import java.util.List;

/** The rules by which Linux lets its users have a vendor's devices. */
final class UdevRules {
    private UdevRules() {
    }

    /** For the nodes of the devices themselves. */
    static String usb(int vendor) {
        return String.format("SUBSYSTEM==\"usb\", ATTR{idVendor}==\"%04x\", TAG+=\"uaccess\"", vendor);
    }

    /** For the nodes of their HID interfaces. */
    static String hid(int vendor) {
        return String.format("KERNEL==\"hidraw*\", ATTRS{idVendor}==\"%04x\", TAG+=\"uaccess\"", vendor);
    }

    /** What to do with a rule for devices of a subsystem. */
    static List<String> remedy(String rule, String subsystem) {
        return List.of(
                "put this line into /etc/udev/rules.d/71-usb-tools.rules",
                "(with MODE=\"0666\" in place of TAG+=\"uaccess\" for those who are not logged in at the machine):",
                "    " + rule,
                "and have it obeyed:",
                "    sudo udevadm control --reload-rules",
                "    sudo udevadm trigger --subsystem-match=" + subsystem);
    }
}
