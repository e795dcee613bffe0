package com.talvane.orvex.comm.recording;

import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;

/**
 * What a recording leaves out.
 *
 * <p>Threads: any.
 */
final class Privacy {
    private static final List<Charset> ENCODINGS = List.of(StandardCharsets.UTF_16LE, StandardCharsets.ISO_8859_1);
    private static final byte[] NOTHING = {};
    /** Characters of a text that is in data on purpose; a shorter one may be there by chance. */
    private static final int FEWEST = 4;

    private final boolean withoutSerials;
    private final boolean withoutData;
    private final Set<String> serials = ConcurrentHashMap.newKeySet();

    /**
     * Leaves out nothing unless it is told to.
     *
     * @param withoutSerials has the digit 0 in the place of each character of a serial number
     * @param withoutData    keeps the data of standard requests only
     */
    Privacy(boolean withoutSerials, boolean withoutData) {
        this.withoutSerials = withoutSerials;
        this.withoutData = withoutData;
    }

    /** This is the serial number of a device. */
    void learn(String serial) {
        if (withoutSerials && !serial.isEmpty()) {
            serials.add(serial);
        }
    }

    /** The transfer as it may be seen. */
    Exchange apply(Exchange exchange) {
        if (withoutData && !exchange.isStandardRequest()) {
            return exchange.withData(NOTHING);
        }
        byte[] data = exchange.data().clone();
        for (String serial : serials) {
            if (serial.length() >= FEWEST || exchange.isText()) {
                ENCODINGS.forEach(encoding -> blank(data, serial, encoding));
            }
        }
        return exchange.withData(data);
    }

    private static void blank(byte[] data, String serial, Charset encoding) {
        byte[] text = serial.getBytes(encoding);
        byte[] zeroes = "0".repeat(serial.length()).getBytes(encoding);
        for (int at = 0; at + text.length <= data.length; at++) {
            if (Arrays.equals(data, at, at + text.length, text, 0, text.length)) {
                System.arraycopy(zeroes, 0, data, at, zeroes.length);
            }
        }
    }
}
