package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;

/** A device of the list: its place, and what its information line tells, in the words of the tool. */
record DeviceInfo(int index, UsbDeviceInfo line) {
    static DeviceInfo parse(int index, String line) {
        return new DeviceInfo(index, UsbDeviceInfo.parse(line));
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

    /** For messages: the serial number, or the place in the list when the device has none. */
    String label() {
        return line.label(index);
    }
}
