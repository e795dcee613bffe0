package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.util.LinkedHashMap;
import java.util.Locale;
import java.util.Map;

/** A device of the list: its index and its information line, and how the tool shows them. */
record DeviceInfo(int index, UsbDeviceInfo line) {
    static DeviceInfo parse(int index, String line) {
        return new DeviceInfo(index, UsbDeviceInfo.parse(line));
    }

    /** The index and all fields of the line, by name. */
    Map<String, Object> fields() {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("index", index);
        fields.put("present", line.present());
        fields.put("vendorId", line.vendorId());
        fields.put("productId", line.productId());
        fields.put("release", line.release());
        fields.put("manufacturer", line.manufacturer());
        fields.put("product", line.product());
        fields.put("serial", line.serial());
        fields.put("kind", line.kind().name().toLowerCase(Locale.ROOT));
        fields.put("family", line.family().name().toLowerCase(Locale.ROOT));
        fields.put("interfaceNumber", line.interfaceNumber());
        return fields;
    }

    String typeText() {
        return switch (line.kind()) {
            case HID -> "HID";
            case UNSUPPORTED -> "unsupported";
            case PIPES -> "bulk";
        };
    }

    String familyText() {
        return switch (line.family()) {
            case COMPOSITE -> "composite";
            case INTERFACE -> "interface " + line.interfaceNumber();
            case WHOLE -> "whole";
        };
    }

    /** For messages: the serial number, or the index if the device has none. */
    String label() {
        return line.label(index);
    }
}
