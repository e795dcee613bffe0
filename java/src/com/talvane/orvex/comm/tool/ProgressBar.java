package com.talvane.orvex.comm.tool;

/** How far a long transfer is, on standard error when that is a terminal and nowhere else. */
final class ProgressBar implements AutoCloseable {
    private static final int WIDTH = 40;

    private final long total;
    private final boolean isShown = Terminal.isErr();
    private long percent = -1;

    ProgressBar(long total) {
        this.total = total;
        show(0);
    }

    /** Shows what has been moved so far; cheap when that looks the same as before. */
    void show(long bytes) {
        long now = total == 0 ? 100 : Math.min(100, (long) (100.0 * bytes / total));
        if (isShown && now != percent) {
            percent = now;
            int full = (int) (WIDTH * now / 100);
            System.err.printf("\r[%s%s] %3d %%", "#".repeat(full), " ".repeat(WIDTH - full), now);
        }
    }

    /** Leaves the line to what comes next. */
    @Override
    public void close() {
        if (isShown) {
            System.err.println();
        }
    }
}
