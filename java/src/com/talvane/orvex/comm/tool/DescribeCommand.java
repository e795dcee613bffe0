package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbEndpoint;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

/** Shows what a device says about itself. */
@Command(
        name = "describe",
        description = "Shows the texts, descriptors and endpoints of a device, without opening it.")
final class DescribeCommand implements Runnable {
    private static final int DEVICE = 1;
    private static final int CONFIGURATION = 2;
    private static final int TEXT = 3;

    @Mixin
    private DeviceChoice device;

    @Override
    public void run() {
        try (Session session = device.session()) {
            DeviceInfo info = device.find(session);
            showText("Manufacturer", session.descriptor(info, TEXT, 1));
            showText("Product", session.descriptor(info, TEXT, 2));
            showText("Serial number", session.descriptor(info, TEXT, 3));
            showDescriptors("device descriptor", session.descriptor(info, DEVICE, 0));
            showDescriptors("configuration descriptor", session.descriptor(info, CONFIGURATION, 0));
            showEndpoints(session.endpoints(info));
        }
    }

    private static void showText(String name, byte[] text) {
        System.out.printf("%-14s %s%n", name, Text.printable(new String(text, StandardCharsets.ISO_8859_1)));
    }

    private static void showDescriptors(String name, byte[] bytes) {
        System.out.println();
        if (bytes.length == 0) {
            System.out.println("The " + name + " could not be read.");
        }
        Descriptors.describe(bytes).forEach(System.out::println);
    }

    private static void showEndpoints(List<UsbEndpoint> endpoints) {
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("ENDPOINT", "DIRECTION", "TYPE", "PACKET"));
        for (UsbEndpoint endpoint : endpoints) {
            rows.add(List.of(
                    String.format("0x%02X", endpoint.address()),
                    endpoint.isIn() ? "IN" : "OUT",
                    Descriptors.transferType(endpoint.attributes()),
                    Integer.toString(endpoint.packetSize())));
        }
        System.out.println();
        Text.table(rows).forEach(System.out::println);
    }
}
