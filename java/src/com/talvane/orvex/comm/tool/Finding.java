package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * The result of one check of {@code doctor}.
 *
 * @param isGood whether the check passed
 * @param text   the result, in one line
 * @param remedy lines that describe the fix, or, if the check passed, other possible problems
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
