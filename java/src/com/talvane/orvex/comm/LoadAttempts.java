package com.talvane.orvex.comm;

import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/** The places from which the loader tried to load the native library, and why each attempt failed. */
final class LoadAttempts {
    private static final String FAILED = "The native USB library could not be loaded";

    /**
     * A part of the message, the same in all versions of the virtual machine, when another class loader has the file.
     */
    private static final String TAKEN = "already loaded in another classloader";

    private final List<Throwable> reasons = new ArrayList<>();
    private final StringBuilder story = new StringBuilder();
    private boolean taken;
    private boolean withoutUdev;
    private boolean withoutDependency;

    /** One attempt to load the library, or a part of it. */
    interface Step {
        void run() throws IOException;
    }

    /**
     * Tries one place.
     *
     * @return whether the step succeeded; if not, the failure is recorded
     */
    boolean succeeds(String place, Step step) {
        try {
            step.run();
            return true;
        } catch (IOException e) {
            note(place, e.toString(), e);
        } catch (UnsatisfiedLinkError e) {
            note(place, e.getMessage(), e);
            taken |= isTaken(e);
            withoutUdev |= BundledLibrary.isMissing("libudev.so.1", e);
            withoutDependency |= BundledLibrary.isDependencyMissing(e);
        }
        return false;
    }

    private void note(String place, String why, Throwable reason) {
        story.append("\nTried ").append(place).append(": ").append(why).append('.');
        reasons.add(reason);
    }

    /** Whether a file could not be loaded because a class of another class loader has loaded it. */
    static boolean isTaken(UnsatisfiedLinkError failure) {
        return failure.getMessage() != null && failure.getMessage().contains(TAKEN);
    }

    /** The error that reports all attempts, with advice. */
    UnsatisfiedLinkError failure() {
        UnsatisfiedLinkError failure = new UnsatisfiedLinkError(FAILED + "." + story + "\n" + advice());
        failure.initCause(reasons.get(0));
        reasons.stream().skip(1).forEach(failure::addSuppressed);
        return failure;
    }

    private String advice() {
        String advice = "Start Java with -D" + NativeLibrary.PATH_PROPERTY + "=<absolute path of the library file>, or "
                + "with -Djava.library.path=<directory that contains " + NativeLibrary.fileName() + ">; if the file is "
                + "there, check that libusb-1.0 is installed and that the library is built for "
                + System.getProperty("os.name") + " " + System.getProperty("os.arch") + ". The copy in the jar needs "
                + "a folder that belongs to the user alone and allows execution (not mounted noexec).";
        if (taken) {
            advice += " A virtual machine loads a file for one class loader only: load the class in one that all "
                    + "its users share, or set neither property: the copy in the jar can serve several.";
        }
        if (withoutUdev) {
            advice += " libudev is missing, and the jar has no copy of it: install it (Debian: "
                    + "sudo apt-get install libudev1).";
        }
        if (withoutDependency && !NativeLibrary.mayFallBack()) {
            advice += " The copies of libusb and hidapi in the jar were not tried, because the system property "
                    + NativeLibrary.FALLBACK_PROPERTY + " is not 'true'.";
        }
        return advice;
    }

    /** The error for a virtual machine whose options forbid the caller to load native code. */
    static UnsatisfiedLinkError nativeAccessDenied(IllegalCallerException reason) {
        Module module = LoadAttempts.class.getModule();
        UnsatisfiedLinkError failure = new UnsatisfiedLinkError(FAILED + ": " + reason.getMessage()
                + ". Start Java with --enable-native-access=" + (module.isNamed() ? module.getName() : "ALL-UNNAMED")
                + ".");
        failure.initCause(reason);
        return failure;
    }
}
