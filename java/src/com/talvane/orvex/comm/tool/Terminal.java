package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * Which of the standard streams are terminals. A virtual machine cannot tell; the launcher asks the system and passes
 * it on. Without the launcher none is.
 */
final class Terminal {
    /** System property: {@code out}, {@code err} or both with a comma between them. */
    static final String PROPERTY = "orvex.usb.terminals";

    /** How a text looks on a terminal. */
    enum Look {
        GOOD(32), BAD(31);

        private final int code;

        Look(int code) {
            this.code = code;
        }

        /** The text as standard output is to have it. */
        String of(String text) {
            return hasColours() ? "\u001B[" + code + "m" + text + "\u001B[0m" : text;
        }
    }

    private Terminal() {
    }

    /** Whether standard output is one. */
    static boolean isOut() {
        return is("out");
    }

    /** Whether standard error is one, where progress is shown. */
    static boolean isErr() {
        return is("err");
    }

    /** Whether standard output is one, and one whose user wants colours. */
    static boolean hasColours() {
        String no = System.getenv("NO_COLOR");
        return isOut() && (no == null || no.isEmpty()) && !"dumb".equals(System.getenv("TERM"));
    }

    private static boolean is(String stream) {
        return List.of(System.getProperty(PROPERTY, "").split(",")).contains(stream);
    }
}
