package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * One thing that was looked at.
 *
 * @param isGood whether it is as it should be
 * @param text   what it is, on a line
 * @param remedy lines that tell how to mend it, or what may still be in the way when it is good
 */
record Finding(boolean isGood, String text, List<String> remedy) {
    static Finding good(String text, String... caveat) {
        return new Finding(true, text, List.of(caveat));
    }

    static Finding bad(String text, List<String> remedy) {
        return new Finding(false, text, remedy);
    }

    static Finding bad(String text, String... remedy) {
        return bad(text, List.of(remedy));
    }
}
