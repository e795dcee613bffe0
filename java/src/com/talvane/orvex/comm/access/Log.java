package com.talvane.orvex.comm.access;

import java.lang.System.Logger;
import java.lang.System.Logger.Level;
import java.util.function.Supplier;

/**
 * The log of the package, for who looks into a failure. {@code docs/flight-recorder.md} tells its levels and texts.
 *
 * <p>A handler of the log may be anything, also a user of this package. So it is not called under a lock of this
 * package, and what it throws ends nothing. No text has more than one line, whatever a device calls itself.
 *
 * <p>Threads: any.
 */
final class Log {
    /** Its name is the package's. */
    private static final Logger LOGGER = System.getLogger(Log.class.getPackageName());

    private Log() {
    }

    /** What happens, and failures that the program is told by an exception. */
    static void debug(Supplier<String> text) {
        if (LOGGER.isLoggable(Level.DEBUG)) {
            tell(Level.DEBUG, text.get(), null);
        }
    }

    /**
     * What somebody has to do something about, and what no exception tells the program.
     *
     * @param text  what it is
     * @param cause null when there is none
     */
    static void warning(String text, Throwable cause) {
        tell(Level.WARNING, text, cause);
    }

    private static void tell(Level level, String text, Throwable cause) {
        String line = UsbDeviceInfo.printable(text);
        SessionLock.afterwards(() -> write(level, line, cause));
    }

    private static void write(Level level, String line, Throwable cause) {
        try {
            LOGGER.log(level, line, cause);
        } catch (RuntimeException e) {
            // A handler's mistake is no failure of the call that it was told of.
        }
    }
}
