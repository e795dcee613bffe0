package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * The rules by which Linux lets some of its users have a vendor's devices: whoever sits at the machine, and the members
 * of a group. They have the form of those that come with the tool.
 */
final class UdevRules {
    private static final String RIGHTS = "MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"";

    private UdevRules() {
    }

    /** For the nodes of the devices themselves. */
    static String usb(int vendor) {
        return String.format("SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%04x\", ", vendor)
                + RIGHTS;
    }

    /** For the nodes of their HID interfaces. An idVendor among the parents could be that of a hub. */
    static String hid(int vendor) {
        return String.format("SUBSYSTEM==\"hidraw\", KERNELS==\"0003:%04X:*\", ", vendor) + RIGHTS;
    }

    /** What to do with a rule for devices of a subsystem. */
    static List<String> remedy(String rule, String subsystem) {
        return List.of(
                "put this line into /etc/udev/rules.d/71-usb-tools.rules:",
                "    " + rule,
                "and have it obeyed:",
                "    sudo udevadm control --reload-rules",
                "    sudo udevadm trigger --subsystem-match=" + subsystem,
                "for a user who is not logged in at the machine itself, and with a new login:",
                "    sudo adduser \"$USER\" plugdev");
    }
}
