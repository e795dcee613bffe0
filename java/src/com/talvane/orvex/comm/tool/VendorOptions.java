package com.talvane.orvex.comm.tool;

import java.util.List;
import picocli.CommandLine.Option;

/** Whose devices are listed. */
final class VendorOptions {
    @Option(
            names = {"-V", "--vendor"},
            paramLabel = "VENDOR",
            defaultValue = "0x6A5C,0x6A5D",
            split = ",",
            converter = Numbers.Word.class,
            description = "Vendor id to list; may be given up to 16 times (default: ${DEFAULT-VALUE}).")
    List<Integer> vendors;
}
