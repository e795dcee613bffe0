package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.recording.RecordedUsb;
import com.talvane.orvex.comm.recording.Recorder;
import java.io.IOException;

/**
 * A recording of what a session transfers ({@link UsbSession#record}). Close it to end it; the end of its session ends
 * it, too.
 *
 * <p>Threads: any method on any thread, at any time.
 */
public final class UsbRecording implements AutoCloseable {
    private final RecordedUsb usb;
    private final Recorder recorder;

    /** What a recording leaves out. */
    public enum Without {
        /**
         * Serial numbers: each of their characters is a 0 in the recording, in texts of the device and, when there are
         * at least 4, in any data of a transfer, one byte or two for each character. What is cut into several
         * transfers, or written in another way, is not found.
         */
        SERIAL_NUMBERS,
        /** The data of all transfers but standard requests; their lengths are there. */
        DATA
    }

    /**
     * A recording that has begun.
     *
     * @param usb      makes the calls that are recorded
     * @param recorder writes it
     */
    UsbRecording(RecordedUsb usb, Recorder recorder) {
        this.usb = usb;
        this.recorder = recorder;
    }

    /**
     * Tells how many devices there are in the recording.
     *
     * @return the number so far
     */
    public int devices() {
        return recorder.counts().devices();
    }

    /**
     * Tells how many transfers there are in the recording, the requests for the descriptors included. One of more than
     * 128 KiB counts as several.
     *
     * @return the number so far
     */
    public long transfers() {
        return recorder.counts().transfers();
    }

    /**
     * Tells how many bytes these transfers have moved, in both directions.
     *
     * @return the number so far
     */
    public long bytes() {
        return recorder.counts().bytes();
    }

    /**
     * Ends the recording; the file is complete then, without the transfers that are under way. Closing it again does
     * nothing more.
     *
     * @throws IOException when it has ended early, because the file could not be written; what was written before can
     *                     be read
     */
    @Override
    public void close() throws IOException {
        usb.end(recorder);
        recorder.close();
    }

    @Override
    public String toString() {
        return String.format("recording of %d devices, %d transfers, %d bytes", devices(), transfers(), bytes());
    }
}
