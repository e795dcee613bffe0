package com.talvane.orvex.comm.access;

/**
 * Work that any thread may interrupt: while it runs its thread is interrupted, before that it is not begun. Whatever
 * the thread does afterwards is not interrupted.
 */
final class InterruptibleTask implements Runnable {
    private final Runnable work;
    private Thread worker;
    private boolean isInterrupted;

    InterruptibleTask(Runnable work) {
        this.work = work;
    }

    @Override
    public void run() {
        if (!begin()) {
            return;
        }
        try {
            work.run();
        } finally {
            finish();
        }
    }

    private synchronized boolean begin() {
        worker = isInterrupted ? null : Thread.currentThread();
        return worker != null;
    }

    private synchronized void finish() {
        worker = null;
        if (isInterrupted) {
            Thread.interrupted();
        }
    }

    synchronized void interrupt() {
        isInterrupted = true;
        if (worker != null) {
            worker.interrupt();
        }
    }
}
