package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;

/**
 * Moves a number of bytes in several transfers, with a progress bar. Ctrl-C stops it between two transfers; the device
 * is closed in this case, too.
 *
 * @param device the device, and the time-out of each transfer
 * @param total  the number of bytes
 * @param piece  the maximum number of bytes for each transfer
 * @param json   whether the result is written as JSON
 */
record LongTransfer(DeviceOptions device, long total, int piece, boolean json) {
    static final int USUAL_PIECE = 1 << 16;

    /** One of the transfers; it may move fewer bytes than requested. */
    interface Step {
        Transfer move(OpenDevice open, long at, int size) throws IOException;
    }

    /** Moves all bytes, or stops when a transfer moves none; reports the result and returns the exit status. */
    int run(boolean in, Step step) throws IOException, InterruptedException {
        // Holds back the end of the process by Ctrl-C until the result is reported.
        try (StopRequest stop = new StopRequest()) {
            long start = System.nanoTime();
            long done = move(step, stop);
            long nanos = System.nanoTime() - start;
            if (json) {
                JsonOption.write(JsonOption.transfer(in ? "in" : "out", done, total, nanos));
                return done < total ? 1 : 0;
            }
            System.err.printf("%s %s, %s%n", in ? "Read" : "Wrote", Text.took(done, nanos), Text.rate(done, nanos));
            if (done < total) {
                System.err.printf("orvex-usb: the transfer ended after %d of %d bytes%n", done, total);
            }
            return done < total ? 1 : 0;
        }
    }

    private long move(Step step, StopRequest stop) throws IOException, InterruptedException {
        try (Session session = device.session();
                OpenDevice open = device.openPipes(session);
                ProgressBar bar = new ProgressBar(total)) {
            long done = 0;
            boolean moves = true;
            while (moves && done < total && !stop.comesWithin(0)) {
                int moved = step.move(open, done, (int) Math.min(piece, total - done)).data().length;
                done += moved;
                moves = moved > 0;
                bar.show(done);
            }
            return done;
        }
    }
}
