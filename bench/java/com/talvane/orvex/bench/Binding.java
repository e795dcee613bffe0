package com.talvane.orvex.bench;

/**
 * A USB binding for Java that the benchmarks measure. To measure another binding in the same run, implement this
 * interface outside of this repository, in a public class with a public constructor without arguments, listed in
 * {@code META-INF/services/com.talvane.orvex.bench.Binding}, on the class path that {@code script/bench --peer} gets.
 */
public interface Binding extends AutoCloseable {
    /** A short name for the tables, without spaces. */
    String name();

    /**
     * Opens the device with this serial number (vendor id 0x6A5C) and claims its interface 0. Endpoint 1 is bulk,
     * endpoint 2 interrupt; both accept and send bytes without end.
     */
    void open(String serialNumber) throws Exception;

    /** Writes the whole array to an OUT endpoint (0x01, 0x02); returns the bytes moved. Time-out: at least 30 s. */
    int write(int endpoint, byte[] bytes) throws Exception;

    /** Fills the whole array from an IN endpoint (0x81, 0x82); returns the bytes moved. */
    int read(int endpoint, byte[] bytes) throws Exception;

    @Override
    void close();
}
