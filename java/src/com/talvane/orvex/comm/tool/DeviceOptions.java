package com.talvane.orvex.comm.tool;

import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** The device that a command opens, and its time-out. */
final class DeviceOptions {
    @Mixin
    private DeviceChoice which;

    @Option(
            names = "--timeout",
            paramLabel = "MS",
            defaultValue = "1000",
            converter = Numbers.Count.class,
            description = "Time-out of each transfer in milliseconds; 0 waits for ever (default: ${DEFAULT-VALUE}).")
    int timeout;

    Session session() {
        return which.session();
    }

    DeviceInfo find(Session session) {
        return which.find(session);
    }

    /** Opens the chosen device, for control requests. */
    OpenDevice open(Session session) {
        return session.open(find(session));
    }

    /** Opens the chosen device, to move bytes through its endpoints. */
    OpenDevice openPipes(Session session) {
        DeviceInfo chosen = find(session);
        if (chosen.line().isHid()) {
            throw new IllegalStateException(
                    chosen.label() + " is a HID device: use orvex-usb hid");
        }
        return session.open(chosen);
    }
}
