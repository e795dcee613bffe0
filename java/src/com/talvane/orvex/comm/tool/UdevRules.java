package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * The udev rules that permit a vendor's devices to the user at the machine and to the members of a group. They have the
 * same form as the rules that are installed with the tool.
 */
final class UdevRules {
    private static final String RIGHTS = "MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"";

    private UdevRules() {
    }

    /** The rule for the nodes of the devices. */
    static String usb(int vendor) {
        return String.format("SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%04x\", ", vendor)
                + RIGHTS;
    }

    /**
     * The rule for the nodes of their HID interfaces. It does not match idVendor, which could be that of a hub above.
     */
    static String hid(int vendor) {
        return String.format("SUBSYSTEM==\"hidraw\", KERNELS==\"0003:%04X:*\", ", vendor) + RIGHTS;
    }

    /** The instructions to install a rule for devices of a subsystem. */
    static List<String> remedy(String rule, String subsystem) {
        return List.of(
                "put this line into /etc/udev/rules.d/71-usb-tools.rules:",
                "    " + rule,
                "and apply it:",
                "    sudo udevadm control --reload-rules",
                "    sudo udevadm trigger --subsystem-match=" + subsystem,
                "for a user who is not logged in at the machine itself (takes effect at the next login):",
                "    sudo adduser \"$USER\" plugdev");
    }
}
