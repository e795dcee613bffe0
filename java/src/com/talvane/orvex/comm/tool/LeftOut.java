package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Option;

/** What a recording leaves out, for a file that goes to somebody else. */
class LeftOut {
    @Option(
            names = "--anonymous",
            description = "Record zeroes instead of the characters of serial numbers, in texts of the device and, from 4"
                    + " characters on, in data.")
    private boolean serials;

    @Option(
            names = "--without-data",
            description = "Record the data of standard requests only, and the lengths of all others.")
    private boolean data;

    final boolean serials() {
        return serials;
    }

    final boolean data() {
        return data;
    }

    /** The same options for another program. */
    final List<String> words() {
        final List<String> words = new ArrayList<>();
        if (serials) {
            words.add("--anonymous");
        }
        if (data) {
            words.add("--without-data");
        }
        return words;
    }

    /** For people, behind what is recorded. */
    final String contents() {
        return (data ? ", without its contents" : ", with its contents")
                + (serials ? ", without serial numbers" : "");
    }
}
