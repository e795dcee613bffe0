package com.talvane.orvex.comm.tool;

import static picocli.CommandLine.Spec.Target.MIXEE;

import java.util.Arrays;
import java.util.List;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** The options that select the vendors whose devices are listed. */
final class VendorOptions {
    private static final int MOST_VENDORS = 16;

    private static final String USUAL = "6A5C,6A5D";

    @ArgGroup
    private Choice choice = new Choice();

    private static final class Choice {
        @Option(
                names = {"-V", "--vendor"},
                paramLabel = "ID",
                split = ",",
                converter = Numbers.Id.class,
                description = "Vendor id to list, in hexadecimal, with or without 0x; may be given up to 16 times"
                        + " (default: " + USUAL + ").")
        private List<Integer> vendors;

        @Option(names = "--all", description = "List the devices of every vendor.")
        private boolean all;
    }

    @Spec(MIXEE)
    private CommandSpec command;

    /** The selected vendors. More than a list can have make the command line invalid. */
    Vendors vendors() {
        if (choice.all) {
            return Vendors.EVERY;
        }
        List<Integer> ids = choice.vendors == null ? usual() : choice.vendors;
        if (ids.size() > MOST_VENDORS) {
            throw new ParameterException(command.commandLine(),
                    ids.size() + " vendor ids are given, but at most " + MOST_VENDORS + " are allowed");
        }
        return new Vendors(ids);
    }

    private static List<Integer> usual() {
        return Arrays.stream(USUAL.split(",")).map(id -> Integer.parseInt(id, 16)).toList();
    }
}
