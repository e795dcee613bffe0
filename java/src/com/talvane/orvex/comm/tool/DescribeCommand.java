package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbEndpoint;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

/** Shows the strings, descriptors and endpoints of a device. */
@Command(
        name = "describe",
        description = "Shows the strings, descriptors and endpoints of a device, without opening it.")
final class DescribeCommand implements Runnable {
    private static final int DEVICE = 1;
    private static final int CONFIGURATION = 2;
    private static final int TEXT = 3;

    @Mixin
    private DeviceChoice device;

    @Mixin
    private JsonOption json;

    @Override
    public void run() {
        try (Session session = device.session()) {
            DeviceInfo info = device.find(session);
            if (json.isWanted()) {
                JsonOption.write(fields(session, info));
                return;
            }
            showText("Manufacturer", session.descriptor(info, TEXT, 1));
            showText("Product", session.descriptor(info, TEXT, 2));
            showText("Serial number", session.descriptor(info, TEXT, 3));
            showPort(info);
            showDescriptors("device descriptor", session.descriptor(info, DEVICE, 0));
            showDescriptors("configuration descriptor", session.descriptor(info, CONFIGURATION, 0));
            showEndpoints(session.endpoints(info));
        }
    }

    private static Map<String, Object> fields(Session session, DeviceInfo info) {
        Map<String, Object> fields = info.fields();
        fields.put("ports", ports(info));
        fields.put("deviceDescriptor", JsonOption.hex(session.descriptor(info, DEVICE, 0)));
        fields.put("configurationDescriptor", JsonOption.hex(session.descriptor(info, CONFIGURATION, 0)));
        fields.put("endpoints", session.endpoints(info).stream().map(DescribeCommand::fields).toList());
        return fields;
    }

    private static Map<String, Object> fields(UsbEndpoint endpoint) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("address", endpoint.address());
        fields.put("direction", endpoint.isIn() ? "in" : "out");
        fields.put("type", Descriptors.transferType(endpoint.attributes()));
        fields.put("packetSize", endpoint.packetSize());
        return fields;
    }

    private static List<String> ports(DeviceInfo info) {
        return Session.isSimulated() ? List.of() : info.line().ports();
    }

    /** Shows where the device is plugged in; several ports if there are devices that look the same. */
    private static void showPort(DeviceInfo info) {
        List<String> ports = ports(info);
        if (!ports.isEmpty()) {
            System.out.printf("%-14s %s%n", "Port", String.join(" or ", ports));
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
