package com.talvane.orvex.comm.tool;

import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Which device a command opens, and for how long it waits. */
final class DeviceOptions {
    @Mixin
    private DeviceChoice which;

    @Option(
            names = "--timeout",
            paramLabel = "MS",
            defaultValue = "1000",
            converter = Numbers.Count.class,
            description = "Time-out of each transfer in milliseconds, 0 waits for ever (default: ${DEFAULT-VALUE}).")
    int timeout;

    Session session() {
        return which.session();
    }

    DeviceInfo find(Session session) {
        return which.find(session);
    }

    /** Opens the chosen device. */
    OpenDevice open(Session session) {
        return session.open(find(session));
    }
}
