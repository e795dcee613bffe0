package com.talvane.orvex.comm.tool;

import java.util.List;

/**
 * Which of the standard streams are terminals. Java cannot find this out, so the launcher passes it in a property.
 * Without the launcher no stream counts as a terminal.
 */
final class Terminal {
    /** System property: {@code out}, {@code err} or both with a comma between them. */
    static final String PROPERTY = "orvex.usb.terminals";

    /** The colour of a text on a terminal. */
    enum Look {
        GOOD(32), BAD(31);

        private final int code;

        Look(int code) {
            this.code = code;
        }

        /** The text for standard output, coloured if that is a terminal with colours. */
        String of(String text) {
            return hasColours() ? "\u001B[" + code + "m" + text + "\u001B[0m" : text;
        }
    }

    private Terminal() {
    }

    /** Whether standard output is a terminal. */
    static boolean isOut() {
        return is("out");
    }

    /** Whether standard error, where progress is shown, is a terminal. */
    static boolean isErr() {
        return is("err");
    }

    /** Whether standard output is a terminal and the user wants colours. */
    static boolean hasColours() {
        String no = System.getenv("NO_COLOR");
        return isOut() && (no == null || no.isEmpty()) && !"dumb".equals(System.getenv("TERM"));
    }

    private static boolean is(String stream) {
        return List.of(System.getProperty(PROPERTY, "").split(",")).contains(stream);
    }
}
