package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;

/**
 * As many transfers as some bytes need, with a bar that shows how far they are. Ctrl-C ends it between two of them, and
 * the device is closed then as well.
 *
 * @param device with which it is made
 * @param total  how many bytes
 * @param piece  how many of them a transfer has at most
 * @param json   whether it is told as JSON
 */
record LongTransfer(DeviceOptions device, long total, int piece, boolean json) {
    static final int USUAL_PIECE = 1 << 16;

    /** One of the transfers; it may move less than it could. */
    interface Step {
        Transfer move(OpenDevice open, long at, int size) throws IOException;
    }

    /** Moves all bytes, or until the device moves none of them; tells how it went and gives the exit status. */
    int run(boolean in, Step step) throws IOException, InterruptedException {
        // Told before the process ends by it.
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
                System.err.printf("orvex-usb: it ended after %d of %d bytes%n", done, total);
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
