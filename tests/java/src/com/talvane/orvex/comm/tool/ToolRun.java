package com.talvane.orvex.comm.tool;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.InputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

/**
 * One run of the tool in this process.
 *
 * @param status the exit status
 * @param bytes  its standard output
 * @param err    its standard error
 */
public record ToolRun(int status, byte[] bytes, String err) {
    /**
     * Runs a command line.
     *
     * @param input the tool's standard input
     * @param args  the command line
     */
    public static ToolRun of(byte[] input, String... args) {
        PrintStream realOut = System.out;
        PrintStream realErr = System.err;
        InputStream realIn = System.in;
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        System.setOut(new PrintStream(out, true, StandardCharsets.UTF_8));
        System.setErr(new PrintStream(err, true, StandardCharsets.UTF_8));
        System.setIn(new ByteArrayInputStream(input));
        try {
            int status = OrvexUsb.commandLine().execute(args);
            return new ToolRun(status, out.toByteArray(), err.toString(StandardCharsets.UTF_8));
        } finally {
            System.setOut(realOut);
            System.setErr(realErr);
            System.setIn(realIn);
        }
    }

    /** Its standard output, as text. */
    public String out() {
        return new String(bytes, StandardCharsets.UTF_8);
    }
}
