package com.talvane.orvex.comm.tool;

import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Resets a device that hangs. */
@Command(
        name = "reset",
        description = "Resets a device, as if it had been unplugged and plugged in again.")
final class ResetCommand implements Callable<Integer> {
    @Mixin
    private DeviceChoice device;

    @Option(
            names = "--endpoint",
            paramLabel = "ADDRESS",
            converter = Numbers.Octet.class,
            description = "Reset only this endpoint; this version of the library does not support that.")
    private Integer endpoint;

    @Override
    public Integer call() {
        try (Session session = device.session(); OpenDevice open = session.open(device.find(session))) {
            if (endpoint == null) {
                open.reset();
            } else {
                open.resetEndpoint(endpoint);
            }
            System.out.println("Reset " + open.info().label() + ".");
            return 0;
        }
    }
}
