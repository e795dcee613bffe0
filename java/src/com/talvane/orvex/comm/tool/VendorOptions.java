package com.talvane.orvex.comm.tool;

import static picocli.CommandLine.Spec.Target.MIXEE;

import java.util.List;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** Whose devices are listed. */
final class VendorOptions {
    private static final int MOST_VENDORS = 16;

    @Option(
            names = {"-V", "--vendor"},
            paramLabel = "VENDOR",
            defaultValue = "0x6A5C,0x6A5D",
            split = ",",
            converter = Numbers.Word.class,
            description = "Vendor id to list; may be given up to 16 times (default: ${DEFAULT-VALUE}).")
    private List<Integer> vendors;

    @Spec(MIXEE)
    private CommandSpec command;

    /** The ids; more than a list can take are a wrong use of the command line. */
    List<Integer> vendors() {
        if (vendors.size() > MOST_VENDORS) {
            throw new ParameterException(command.commandLine(),
                    vendors.size() + " vendor ids are given, " + MOST_VENDORS + " can be");
        }
        return vendors;
    }
}
