package com.talvane.orvex.comm.recording;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.recording.RecordedDevice.Reports;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.LongSupplier;

/**
 * The descriptors of an open device, as the requests that a host makes for them. A device that is driven by pipes is
 * asked. Of a HID device, which takes no requests, and of one that does not answer, those are taken that were read when
 * it was listed; what is not known even then is that of a simple HID device.
 */
final class Descriptors {
    private static final int DEVICE = 1;
    private static final int CONFIGURATION = 2;
    private static final int TEXT = 3;
    private static final int INTERFACE = 4;
    private static final int ENDPOINT = 5;
    private static final int HID = 3;
    private static final int INTERRUPT = 3;
    private static final int IN = 0x80;
    private static final int GET_DESCRIPTOR = 6;
    private static final int SETUP_BYTES = 8;
    private static final int DEVICE_BYTES = 18;
    /** Of a configuration without its interfaces; no descriptor in it is longer before its variable part. */
    private static final int HEAD_BYTES = 9;
    private static final int MOST_TEXT_BYTES = 255;
    private static final int MOST_KEPT_BYTES = 512;
    /** Where a device descriptor has the numbers of the manufacturer, the product and the serial number. */
    private static final int TEXTS = 14;
    private static final int SERIAL = 2;
    private static final int ENGLISH = 0x0409;
    private static final int TIMEOUT = 1000;
    private static final int LARGE_REPORT_VENDOR = 0x6A5D;
    private static final byte[] SIMPLE_DEVICE = {DEVICE_BYTES, DEVICE, 0, 2, 0, 0, 0, 64, 0, 0, 0, 0, 0, 0, 1, 2, 3, 1};
    private static final byte[] SIMPLE_CONFIGURATION = {
        HEAD_BYTES, CONFIGURATION, 34, 0, 1, 1, 0, (byte) 0x80, 50, HEAD_BYTES, INTERFACE, 0, 0, 1, HID, 0, 0, 0,
        9, 0x21, 0x11, 1, 0, 1, 0x22, 0, 0, 7, ENDPOINT, (byte) 0x81, INTERRUPT, 64, 0, 10};

    private final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
    private final int list;
    private final int index;
    private final LongSupplier clock;
    private final boolean isHid;
    private final List<Answer> answers = new ArrayList<>();
    private byte[] device = {};
    private byte[] configuration = {};
    private String serial = "";

    private record Answer(byte[] setup, byte[] data, int status, long began, long ended) {
    }

    /**
     * Finds them out.
     *
     * @param list  the raw handle of the device's list
     * @param index its place there
     * @param clock in nanoseconds since 1970
     */
    Descriptors(int list, int index, LongSupplier clock) {
        this.list = list;
        this.index = index;
        this.clock = clock;
        isHid = usb.usbGetDeviceInfo(list, index).matches("(?s).*:=x:=h:=\\d:=\\d+:=end");
        if (isHid || !askForAll()) {
            answers.clear();
            takeKept();
        }
    }

    /** Returns false when there is not even a configuration. */
    private boolean askForAll() {
        device = ask(DEVICE, 0, 0, DEVICE_BYTES);
        for (int i = 0; device.length == DEVICE_BYTES && i < device[DEVICE_BYTES - 1]; i++) {
            byte[] head = ask(CONFIGURATION, i, 0, HEAD_BYTES);
            if (head.length < HEAD_BYTES) {
                break; // so that a device that answers no more takes no more time
            }
            byte[] whole = ask(CONFIGURATION, i, 0, word(head, 2));
            configuration = i == 0 ? whole : configuration;
        }
        if (configuration.length < HEAD_BYTES) {
            return false;
        }
        byte[] languages = ask(TEXT, 0, 0, MOST_TEXT_BYTES);
        for (int which = 0; which <= SERIAL; which++) {
            if (device[TEXTS + which] != 0) {
                byte[] text = ask(TEXT, device[TEXTS + which], languages.length < 4 ? ENGLISH : word(languages, 2),
                        MOST_TEXT_BYTES);
                takeSerial(which, text);
            }
        }
        return true;
    }

    private void takeSerial(int which, byte[] text) {
        if (which == SERIAL && text.length > 2) {
            serial = new String(text, 2, text.length - 2, StandardCharsets.UTF_16LE);
        }
    }

    private byte[] ask(int type, int number, int language, int length) {
        byte[] request = Arrays.copyOf(setup(type, number, language, length), SETUP_BYTES + length);
        long began = clock.getAsLong();
        int result = usb.usbReadControlPipe(list, index, 0, TIMEOUT, request);
        long ended = clock.getAsLong();
        int status = result > 0 ? Exchange.COMPLETED : Exchange.STALLED;
        byte[] data = Arrays.copyOfRange(request, SETUP_BYTES, SETUP_BYTES + Math.max(result, 0));
        answers.add(new Answer(setup(type, number, language, length), data, status, began, ended));
        return data;
    }

    private static byte[] setup(int type, int number, int language, int length) {
        return new byte[] {(byte) IN, GET_DESCRIPTOR, (byte) number, (byte) type, (byte) language,
            (byte) (language >> 8), (byte) length, (byte) (length >> 8)};
    }

    private void takeKept() {
        device = give(DEVICE, 0, 0, orSimple(kept(DEVICE, 0), DEVICE_BYTES, SIMPLE_DEVICE));
        configuration = give(CONFIGURATION, 0, 0, orSimple(kept(CONFIGURATION, 0), HEAD_BYTES, SIMPLE_CONFIGURATION));
        give(TEXT, 0, 0, new byte[] {4, TEXT, (byte) ENGLISH, (byte) (ENGLISH >> 8)});
        for (int which = 0; which <= SERIAL; which++) {
            String text = new String(kept(TEXT, which + 1), StandardCharsets.ISO_8859_1);
            if (device[TEXTS + which] != 0 && !text.equals("?")) {
                byte[] units = text.getBytes(StandardCharsets.UTF_16LE);
                byte[] descriptor = new byte[2 + units.length];
                descriptor[0] = (byte) descriptor.length;
                descriptor[1] = TEXT;
                System.arraycopy(units, 0, descriptor, 2, units.length);
                takeSerial(which, give(TEXT, device[TEXTS + which], ENGLISH, descriptor));
            }
        }
    }

    private static byte[] orSimple(byte[] kept, int least, byte[] simple) {
        return kept.length < least ? simple : kept;
    }

    private byte[] kept(int type, int number) {
        byte[] bytes = new byte[MOST_KEPT_BYTES];
        int size = usb.usbGetDeviceDescriptor(list, index, type, number, bytes.length, bytes);
        return Arrays.copyOf(bytes, Math.max(size, 0));
    }

    /** Has the device give this, as far as the recording tells. */
    private byte[] give(int type, int number, int language, byte[] descriptor) {
        long now = clock.getAsLong();
        answers.add(new Answer(setup(type, number, language, descriptor.length), descriptor, Exchange.COMPLETED, now,
                now));
        return descriptor;
    }

    private static int word(byte[] bytes, int at) {
        return (bytes[at] & 0xFF) | (bytes[at + 1] & 0xFF) << 8;
    }

    /** The serial number; empty when there is none. */
    String serial() {
        return serial;
    }

    /** The requests, and what was answered. */
    List<Exchange> exchanges(RecordedDevice of) {
        return answers.stream().map(answer -> new Exchange(of, Exchange.CONTROL, IN, answer.setup(),
                word(answer.setup(), 6), answer.data(), answer.data().length, answer.status(), answer.began(),
                answer.ended())).toList();
    }

    /** The reports of a HID device: of its first HID interface, in the first setting. Null for any other device. */
    Reports reports() {
        if (!isHid) {
            return null;
        }
        int number = -1;
        boolean isOurs = false;
        int in = 0x81;
        int out = 0;
        byte[] bytes = Arrays.copyOf(configuration, configuration.length + HEAD_BYTES); // its end may be cut
        for (int at = 0; at < configuration.length; at += Math.max(bytes[at] & 0xFF, 1)) {
            if (bytes[at + 1] == INTERFACE) {
                isOurs = bytes[at + 5] == HID && number < 0;
                number = isOurs ? bytes[at + 2] : number;
            } else if (bytes[at + 1] == ENDPOINT && bytes[at + 3] == INTERRUPT && isOurs) {
                int address = bytes[at + 2] & 0xFF;
                in = address >= IN ? address : in;
                out = address < IN ? address : out;
            }
        }
        boolean isLarge = word(device, 8) == LARGE_REPORT_VENDOR;
        return new Reports(in, out, Math.max(number, 0), isLarge ? 512 : 64, isLarge ? 0 : 0x5A);
    }
}
