package com.talvane.orvex.comm.tool;

/** The progress of a long transfer, shown on standard error if that is a terminal. */
final class ProgressBar implements AutoCloseable {
    private static final int WIDTH = 40;

    private final long total;
    private final boolean isShown = Terminal.isErr();
    private long percent = -1;

    ProgressBar(long total) {
        this.total = total;
        show(0);
    }

    /** Shows the progress so far; cheap if the displayed line does not change. */
    void show(long bytes) {
        long now = total == 0 ? 100 : Math.min(100, (long) (100.0 * bytes / total));
        if (isShown && now != percent) {
            percent = now;
            int full = (int) (WIDTH * now / 100);
            System.err.printf("\r[%s%s] %3d %%", "#".repeat(full), " ".repeat(WIDTH - full), now);
        }
    }

    /** Ends the line. */
    @Override
    public void close() {
        if (isShown) {
            System.err.println();
        }
    }
}
