package com.talvane.orvex.comm.recording;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import java.util.concurrent.atomic.AtomicReference;

/**
 * The raw class, whose transfers are recorded while there is a recording. Results are those of the raw class.
 *
 * <p>Threads: as the raw class. A recording may begin and end beside any call.
 */
public final class RecordedUsb extends ORVEXCommUSBAccess {
    private static final int IN = 0x80;
    private static final int ENDPOINT_BITS = 0xFF;

    private final AtomicReference<Recorder> recorder = new AtomicReference<>();

    /** Creates it, without a recording. */
    public RecordedUsb() {
    }

    /**
     * Records from now on. A device that is open already is recorded if it has been described to the recording.
     *
     * @param to the recording
     */
    public void begin(Recorder to) {
        recorder.set(to);
    }

    /**
     * Records no more, if this is what is recorded to.
     *
     * @param to the recording
     */
    public void end(Recorder to) {
        recorder.compareAndSet(to, null);
    }

    /**
     * Returns what is recorded to.
     *
     * @return the recording; null when there is none
     */
    public Recorder recorder() {
        return recorder.get();
    }

    @Override
    public int usbOpenDevice(int listHandle, int index) {
        int result = super.usbOpenDevice(listHandle, index);
        Recorder to = recorder();
        if (to != null && result == 0) {
            to.describe(listHandle, index);
        }
        return result;
    }

    @Override
    public int usbCloseDevice(int listHandle, int index) {
        Recorder to = recorder();
        if (to != null) {
            to.cancelAll(listHandle, index);
        }
        return super.usbCloseDevice(listHandle, index);
    }

    @Override
    public int usbCancelPipeTransfer(int listHandle, int index, int endpoint) {
        Recorder to = recorder();
        if (to != null) {
            to.cancel(listHandle, index, endpoint & ENDPOINT_BITS);
        }
        return super.usbCancelPipeTransfer(listHandle, index, endpoint);
    }

    @Override
    public int usbWriteControlPipe(int listHandle, int index, int ignored, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbWriteControlPipe(listHandle, index, ignored, timeout, buffer)
                : to.control(listHandle, index, 0, timeout, buffer,
                        () -> super.usbWriteControlPipe(listHandle, index, ignored, timeout, buffer));
    }

    @Override
    public int usbReadControlPipe(int listHandle, int index, int ignored, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbReadControlPipe(listHandle, index, ignored, timeout, buffer)
                : to.control(listHandle, index, IN, timeout, buffer,
                        () -> super.usbReadControlPipe(listHandle, index, ignored, timeout, buffer));
    }

    @Override
    public int usbWriteBulkPipe(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbWriteBulkPipe(listHandle, index, endpoint, length, timeout, buffer)
                : to.pipe(listHandle, index, Exchange.BULK, out(endpoint), length, buffer,
                        () -> super.usbWriteBulkPipe(listHandle, index, endpoint, length, timeout, buffer));
    }

    @Override
    public int usbReadBulkPipe(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbReadBulkPipe(listHandle, index, endpoint, length, timeout, buffer)
                : to.pipe(listHandle, index, Exchange.BULK, in(endpoint), length, buffer,
                        () -> super.usbReadBulkPipe(listHandle, index, endpoint, length, timeout, buffer));
    }

    /** The last two arguments have no effect. */
    @Override
    public int usbWriteBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer,
            int packetSize, int fillValue) {
        return usbWriteBulkPipe(listHandle, index, endpoint, length, timeout, buffer);
    }

    /** The last two arguments have no effect. */
    @Override
    public int usbReadBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer,
            int packetSize, int fillValue) {
        return usbReadBulkPipe(listHandle, index, endpoint, length, timeout, buffer);
    }

    @Override
    public int usbWriteInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbWriteInterruptPipe(listHandle, index, endpoint, length, timeout, buffer)
                : to.writePackets(listHandle, index, out(endpoint), length, buffer, 0, 0,
                        () -> super.usbWriteInterruptPipe(listHandle, index, endpoint, length, timeout, buffer));
    }

    @Override
    public int usbReadInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer) {
        Recorder to = recorder();
        return to == null ? super.usbReadInterruptPipe(listHandle, index, endpoint, length, timeout, buffer)
                : to.readPackets(listHandle, index, in(endpoint), length, buffer, 0,
                        () -> super.usbReadInterruptPipe(listHandle, index, endpoint, length, timeout, buffer));
    }

    @Override
    public int usbWriteInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer,
            int packetSize, int fillValue) {
        Recorder to = recorder();
        return to == null
                ? super.usbWriteInterruptPipeEx(
                        listHandle, index, endpoint, length, timeout, buffer, packetSize, fillValue)
                : to.writePackets(listHandle, index, out(endpoint), length, buffer, packetSize, fillValue,
                        () -> super.usbWriteInterruptPipeEx(
                                listHandle, index, endpoint, length, timeout, buffer, packetSize, fillValue));
    }

    @Override
    public int usbReadInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout, byte[] buffer,
            int packetSize, int fillValue) {
        Recorder to = recorder();
        return to == null
                ? super.usbReadInterruptPipeEx(
                        listHandle, index, endpoint, length, timeout, buffer, packetSize, fillValue)
                : to.readPackets(listHandle, index, in(endpoint), length, buffer, packetSize,
                        () -> super.usbReadInterruptPipeEx(
                                listHandle, index, endpoint, length, timeout, buffer, packetSize, fillValue));
    }

    private static int out(int endpoint) {
        return endpoint & ENDPOINT_BITS & ~IN;
    }

    private static int in(int endpoint) {
        return endpoint & ENDPOINT_BITS | IN;
    }
}
