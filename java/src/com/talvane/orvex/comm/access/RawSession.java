package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.recording.RecordedUsb;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.stream.IntStream;

/**
 * The session of the raw class, and what its calls share: the session lock. A process has one session at a time.
 */
final class RawSession {
    /** Under the session lock. */
    private static boolean isOneOpen;

    final RecordedUsb usb = new RecordedUsb();
    /** Where listeners are called and devices are read for them; ends with the session. */
    final ExecutorService threads = Executors.newCachedThreadPool(RawSession::newThread);
    /** Those to what comes and goes. */
    final Listeners listeners = new Listeners();
    private final int id;
    private boolean closed;

    /** A raw call, or some that belong together, under the session lock. */
    @FunctionalInterface
    interface Call<T, X extends Exception> {
        T make() throws X;
    }

    private RawSession() throws UsbException {
        id = Result.check("open a session", usb.usbInitialize());
        Log.debug(() -> String.format("session opened: library %.2f, %s %s, Java %s", usb.usbGetLibVersion() / 100.0,
                System.getProperty("os.name"), System.getProperty("os.version"), Runtime.version()));
    }

    /** Opens the session. Throws UsbBusyException when the process has one, UsbException when libusb cannot start. */
    static RawSession open() throws UsbException {
        SessionLock.lock();
        try {
            if (isOneOpen) {
                // The library is not asked: transfers may be running, and the raw call must not overlap with any.
                throw new UsbBusyException("open a session", UsbAccessCode.SESSION_OPEN);
            }
            RawSession session = new RawSession();
            isOneOpen = true;
            return session;
        } catch (UsbException e) {
            Log.debug(e::getMessage);
            throw e;
        } finally {
            SessionLock.unlock();
        }
    }

    /** A thread that does not keep the program alive. */
    private static Thread newThread(Runnable work) {
        Thread thread = new Thread(work, "orvex-usb");
        thread.setDaemon(true);
        return thread;
    }

    int id() {
        return id;
    }

    /** The information lines of a raw list; under the session lock. */
    List<String> lines(int list) {
        return IntStream.range(0, usb.usbGetDeviceListCount(list))
                .mapToObj(index -> usb.usbGetDeviceInfo(list, index))
                .toList();
    }

    /**
     * Makes a call under the session lock and returns its result. Throws IllegalStateException when the session is
     * closed.
     */
    <T, X extends Exception> T locked(Call<T, X> call) throws X {
        SessionLock.lock();
        try {
            if (closed) {
                throw new IllegalStateException("the session is closed");
            }
            return call.make();
        } finally {
            SessionLock.unlock();
        }
    }

    /** Runs {@code work} under the session lock; does nothing when the session is closed. */
    void ifOpen(Runnable work) {
        SessionLock.lock();
        try {
            if (!closed) {
                work.run();
            }
        } finally {
            SessionLock.unlock();
        }
    }

    /**
     * The same, but does nothing also when another thread has the session lock. The caller may have the lock of an
     * endpoint.
     */
    void ifFree(Runnable work) {
        if (SessionLock.tryLock()) {
            try {
                ifOpen(work);
            } finally {
                SessionLock.unlockOnly();
            }
        }
    }

    boolean isOpen() {
        boolean[] open = {false};
        ifOpen(() -> open[0] = true);
        return open[0];
    }

    /** Ends the session, after {@code last}, which runs when no other call can begin. Ending it again does nothing. */
    void end(Runnable last) {
        ifOpen(() -> {
            closed = true;
            listeners.end();
            last.run();
            usb.usbRelease(id);
            threads.shutdown();
            isOneOpen = false;
            Log.debug(() -> "session closed");
        });
    }
}
