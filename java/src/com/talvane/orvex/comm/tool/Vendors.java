package com.talvane.orvex.comm.tool;

import java.util.List;
import java.util.stream.Collectors;

/**
 * The vendors whose devices a command looks for.
 *
 * @param ids the vendor ids; empty for every vendor
 */
record Vendors(List<Integer> ids) {
    static final Vendors EVERY = new Vendors(List.of());

    boolean isEvery() {
        return ids.isEmpty();
    }

    boolean has(int vendor) {
        return isEvery() || ids.contains(vendor);
    }

    int[] toArray() {
        return ids.stream().mapToInt(Integer::intValue).toArray();
    }

    /** The option of the command line that selects these vendors. */
    String option() {
        return isEvery() ? "--all"
                : "--vendor " + ids.stream().map(id -> String.format("%04X", id)).collect(Collectors.joining(","));
    }

    /** For messages, such as "the vendors 6A5C, 6A5D". */
    @Override
    public String toString() {
        String all = ids.stream().map(id -> String.format("%04X", id)).collect(Collectors.joining(", "));
        return isEvery() ? "any vendor" : ids.size() == 1 ? "the vendor " + all : "the vendors " + all;
    }
}
