package com.talvane.orvex.comm.access;

import java.util.List;
import java.util.concurrent.Executor;

/**
 * A device of a list: what is known of it and, while it is open, its transfers.
 *
 * <p>Information, descriptors and endpoints are there without opening it. {@link #open} and {@link #close} may be used
 * again and again; what needs an open device throws {@link IllegalStateException} otherwise. Devices are those of a
 * {@link UsbDeviceList}; a test may have its own implementation, and the classes that stand on this one (streams,
 * channels and futures) work with it. Methods may be added in later versions.
 *
 * <p>Threads: any method on any thread, at any time.
 *
 * <p>Transfers have these things in common:
 * <ul>
 * <li>They move bytes of an array from an offset on. Bounds are checked before anything moves
 *     ({@link IndexOutOfBoundsException}), and nothing outside them is changed. Until the transfer returns, no other
 *     thread changes the array.</li>
 * <li>Time-outs are in milliseconds, 1 or more; {@link #FOREVER} is for reads only. The time that a transfer waits for
 *     its turn is not counted: on an endpoint they run one after the other.</li>
 * <li>They return what moved, which may be less than was asked for. A transfer of which nothing moved is looked into:
 *     see the exceptions. {@link UsbException} itself is thrown when the cause cannot be told.</li>
 * <li>When the thread is interrupted, the transfer is cancelled and {@link UsbInterruptedException} thrown; a transfer
 *     of a thread that has been interrupted before does not begin. A HID report that is being sent is sent.</li>
 * <li>{@link IllegalArgumentException} is for endpoints and time-outs that cannot be, and
 *     {@link UnsupportedOperationException} for calls that the kind of device does not have; nothing moves then
 *     either.</li>
 * </ul>
 */
public interface UsbDevice extends AutoCloseable {
    /** The time-out of a read that waits until something comes, or the device is closed or gone. */
    int FOREVER = Deadline.FOREVER;

    // ---------------------------------------------------------------------------------------------- what is known

    /**
     * What the information line told at the latest look at the list.
     *
     * @return the fields of the line
     */
    UsbDeviceInfo info();

    /**
     * The information line itself.
     *
     * @return as the library gave it
     */
    String line();

    /**
     * The device's place in its list.
     *
     * @return 0 for the first
     */
    int index();

    /**
     * Whether it was there at the latest look at the list.
     *
     * @return true when it was
     */
    boolean isPresent();

    /**
     * Why it may be another device, as of the latest look at the list.
     *
     * @return {@link UsbDoubt#NONE} when it is certain
     */
    default UsbDoubt doubt() {
        return UsbDoubt.NONE;
    }

    /**
     * Names it for people.
     *
     * @return the serial number without control characters, or the place in the list when there is none
     */
    String label();

    /**
     * A descriptor as it was read when the device was listed.
     *
     * @param type            1 device, 2 configuration with all that follows it, 3 text, 5 endpoint
     * @param descriptorIndex of a text: 1 manufacturer, 2 product, 3 serial number; of an endpoint its address; 0 for
     *                        others
     * @return its bytes, of a text one for each character; empty when the library has none
     * @throws IllegalArgumentException for any other type, text or address
     * @throws IllegalStateException    when the session is closed
     * @throws UsbException             when the library does not know the device any more
     */
    byte[] descriptor(int type, int descriptorIndex) throws UsbException;

    /**
     * The endpoints of the device, or of the interface that it is.
     *
     * @return as many as there are
     * @throws IllegalStateException when the session is closed
     * @throws UsbException          when the library does not know the device any more
     */
    List<UsbEndpoint> endpoints() throws UsbException;

    // ---------------------------------------------------------------------------------------------- open and close

    /**
     * Opens the device; a HID device with reports of 64 bytes, the last of a write filled up with 0x5A. One of vendor
     * 0x6A5D has reports of 512 bytes, filled up with 0.
     *
     * @return this device, for a try statement that closes it
     * @throws IllegalStateException  when it is open, or the session is closed
     * @throws UsbDeviceGoneException when it is absent
     * @throws UsbBusyException       when another program or a driver has it
     * @throws UsbException when it cannot be opened: no permission, a class that is not supported, it left just now, or
     *                      a transfer of an earlier opening has still not come back
     */
    UsbDevice open() throws UsbException;

    /**
     * Opens a HID device with reports of another size. They keep it until the device is closed. What was not read
     * before an open with another size is garbled, and so may be reports that come in the very moment of it.
     *
     * @param reportSize the number of bytes in each report, 64 to 1024
     * @param fill       its low 8 bits fill up the last report of a write
     * @return this device, for a try statement that closes it
     * @throws IllegalArgumentException      when the size is out of range
     * @throws UnsupportedOperationException when it is not a HID device
     * @throws IllegalStateException         as {@link #open()}
     * @throws UsbException                  as {@link #open()}
     */
    UsbDevice openReports(int reportSize, int fill) throws UsbException;

    /**
     * The length of a HID device's reports: of an open device as it was opened, of another one as {@link #open()}
     * would.
     *
     * @return the number of bytes in each report, 64 to 1024
     * @throws UnsupportedOperationException when it is not a HID device
     */
    int reportSize();

    /**
     * Whether it is open.
     *
     * @return true between {@link #open} and {@link #close}, also when the device is gone
     */
    boolean isOpen();

    /**
     * Closes the device. No transfer starts any more, and those of other threads are ended: they return what has
     * moved, or throw {@link IllegalStateException} when that is nothing. Its listeners are closed as {@link
     * UsbSubscription#close} tells. Closing again does nothing.
     *
     * <p>It waits for what cannot be cancelled: for a HID read a millisecond, for a HID report until the system has
     * taken it. When transfers do not come back within 3 seconds, the device stays claimed, and {@link #open} tries
     * again to end them. The close of a HID device may take 20 seconds and more (see "HID devices" in
     * {@link com.talvane.orvex.comm.ORVEXCommUSBAccess}).
     */
    @Override
    void close();

    /**
     * Resets the port of the device. It waits for the writes and control requests of other threads on this device.
     * Their reads return what they have got, and go on after the reset when that is nothing.
     *
     * @throws IllegalStateException         when it is not open
     * @throws UnsupportedOperationException for a HID device
     * @throws UsbDeviceGoneException        when it is another device after the reset, or gone
     * @throws UsbException                  when the reset fails otherwise
     */
    void reset() throws UsbException;

    // ---------------------------------------------------------------------------------------------- transfers

    /**
     * Reads from a bulk endpoint until the bytes are there or a packet comes that is not full. Ask for a multiple of
     * the packet size ({@link UsbEndpoint#packetBytes}): then every packet fits.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param buffer   takes the bytes
     * @param offset   where in it
     * @param length   how many at most
     * @param timeout  in milliseconds, or {@link #FOREVER}
     * @return the number of bytes; 0 for an empty packet
     * @throws UsbTimeoutException    when the time ran out; what had come of the transfer is lost
     * @throws UsbOverflowException   when the device sent more than was asked for
     * @throws UsbStalledException    when the endpoint is halted
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the transfer failed otherwise
     */
    int readBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Reads from an interrupt endpoint; apart from that as {@link #readBulk}.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param buffer   takes the bytes
     * @param offset   where in it
     * @param length   how many at most
     * @param timeout  in milliseconds, or {@link #FOREVER}
     * @return the number of bytes; 0 for an empty packet
     * @throws UsbException as {@link #readBulk}
     */
    int readInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Writes to a bulk endpoint.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param buffer   holds the bytes
     * @param offset   where in it
     * @param length   how many; 0 sends an empty packet
     * @param timeout  in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbTimeoutException    when the time ran out; the device may have taken some bytes
     * @throws UsbStalledException    when the endpoint is halted
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the transfer failed otherwise
     */
    int writeBulk(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Writes to an interrupt endpoint; apart from that as {@link #writeBulk}.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param buffer   holds the bytes
     * @param offset   where in it
     * @param length   how many; 0 sends an empty packet
     * @param timeout  in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbException as {@link #writeBulk}
     */
    int writeInterrupt(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Reads from a bulk or interrupt endpoint until all bytes are there, in as many packets as that takes: the end of a
     * message does not end it.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param buffer   takes the bytes
     * @param offset   where in it
     * @param length   how many
     * @param timeout  for all of it, in milliseconds, or {@link #FOREVER}
     * @throws UsbTimeoutException when the time ran out
     * @throws UsbException        as {@link #readBulk}. {@link UsbException#moved} tells how many bytes the buffer has
     */
    void readFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Writes all bytes to a bulk or interrupt endpoint, in as many transfers as that takes.
     *
     * @param endpoint its address, 0x01 to 0x0F
     * @param buffer   holds the bytes
     * @param offset   where in it
     * @param length   how many; with 0 nothing is sent
     * @param timeout  for all of it, in milliseconds
     * @throws UsbTimeoutException when the time ran out
     * @throws UsbException        as {@link #writeBulk}. {@link UsbException#moved} tells how many bytes the device
     *                             took at least
     */
    void writeFully(int endpoint, byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Makes a control request that gets data from the device.
     *
     * @param requestType bmRequestType, with bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param length      wLength: how many bytes at most, 0 to 65535
     * @param timeout     in milliseconds
     * @return the bytes that came, one at least unless none were asked for
     * @throws UsbTimeoutException    when nothing came and the time ran out
     * @throws UsbStalledException    when the device refused; a device that has nothing to say cannot be told from that
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the request could not be sent otherwise
     */
    byte[] readControl(int requestType, int request, int value, int indexWord, int length, int timeout)
            throws UsbException;

    /**
     * Makes a control request that sends data to the device.
     *
     * @param requestType bmRequestType, without bit 0x80
     * @param request     bRequest
     * @param value       wValue
     * @param indexWord   wIndex
     * @param data        what is sent, up to 65535 bytes. Whether a request without data was taken is not told
     * @param timeout     in milliseconds
     * @return the number of bytes that the device took
     * @throws UsbTimeoutException    when the device took nothing and the time ran out
     * @throws UsbStalledException    when the device refused the data
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when the request could not be sent otherwise
     */
    int writeControl(int requestType, int request, int value, int indexWord, byte[] data, int timeout)
            throws UsbException;

    /**
     * Reads from a HID device: the bytes of as many input reports as that takes; what is left of the last one is
     * dropped. Each report takes the size that the device was opened with, however many bytes the device sent of it:
     * how many those were, the library does not tell, and what follows them is not defined.
     *
     * <p>While it waits it sleeps, in pauses of 5 ms, and takes less than a tenth of a processor core. For 20 ms after
     * the device was opened or a report was written, it does not sleep, so that answers come at once. A wall clock that
     * is set back while it does not sleep makes it wait longer.
     *
     * @param buffer  takes the bytes
     * @param offset  where in it
     * @param length  how many
     * @param timeout in milliseconds, or {@link #FOREVER}
     * @return the number of bytes: {@code length}, or those of the reports that came in time
     * @throws UsbTimeoutException    when no report came in time
     * @throws UsbDeviceGoneException when no report came and the device was pulled
     * @throws UsbException           when the read failed otherwise
     */
    int readReports(byte[] buffer, int offset, int length, int timeout) throws UsbException;

    /**
     * Writes to a HID device, in output reports of one size; the last one is filled up.
     *
     * @param buffer  holds the bytes
     * @param offset  where in it
     * @param length  how many; with 0 nothing is sent
     * @param timeout for each report, in milliseconds; the system does not look at it, see "HID devices" in
     *                {@link com.talvane.orvex.comm.ORVEXCommUSBAccess}
     * @return the number of bytes: {@code length}
     * @throws UsbDeviceGoneException when the device was pulled
     * @throws UsbException           when a report could not be sent; {@link UsbException#moved} tells how many bytes
     *                                were, with those before it
     */
    int writeReports(byte[] buffer, int offset, int length, int timeout) throws UsbException;

    // ---------------------------------------------------------------------------------------------- listeners

    /**
     * Has a listener called with each report that a HID device sends from now on, until the device is closed. It is
     * called on a thread of the session; apart from that as {@link #onData(int, int, UsbInputListener, Executor)}.
     *
     * @param listener gets each report as {@link #readReports} would
     * @return closes the subscription; the device stays open
     * @throws IllegalStateException         when it is not open, or has such a listener already
     * @throws UnsupportedOperationException when it is not a HID device
     */
    UsbSubscription onReport(UsbInputListener listener);

    /**
     * The same, with the listener called by an executor.
     *
     * @param listener gets each report as {@link #readReports} would
     * @param executor calls it
     * @return closes the subscription; the device stays open
     * @throws IllegalStateException         as {@link #onReport(UsbInputListener)}
     * @throws UnsupportedOperationException as {@link #onReport(UsbInputListener)}
     */
    UsbSubscription onReport(UsbInputListener listener, Executor executor);

    /**
     * Has a listener called with what an endpoint sends from now on. It is called on a thread of the session; apart
     * from that as {@link #onData(int, int, UsbInputListener, Executor)}.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param size     how many bytes one call gets at most, 1 to 16 MiB; rounded up to whole packets
     * @param listener gets what each read got
     * @return closes the subscription; the device stays open
     * @throws IllegalStateException         when it is not open, or the endpoint has a listener already
     * @throws UnsupportedOperationException for a HID device
     */
    UsbSubscription onData(int endpoint, int size, UsbInputListener listener);

    /**
     * Has a listener called with what an endpoint sends from now on, by an executor. The endpoint is read with
     * {@link #readBulk} or {@link #readInterrupt}, whichever it is for, again and again.
     *
     * <p>The calls come one after another, each as a task of its own. When the listener is slow, the device is not read
     * from while 16 arrays wait: a device with pipes waits then, of a HID device the library keeps 64000 bytes of
     * reports and then drops the oldest. While an endpoint has a listener, every other read of it throws {@link
     * IllegalStateException}. Closing the device or the session closes the subscription, too.
     *
     * @param endpoint its address, 0x81 to 0x8F
     * @param size     how many bytes one call gets at most, 1 to 16 MiB; rounded up to whole packets
     * @param listener gets what each read got; an empty array for an empty packet
     * @param executor calls it
     * @return closes the subscription; the device stays open. What comes while it is being closed is lost
     * @throws IllegalStateException         when it is not open, or the endpoint has a listener already
     * @throws UnsupportedOperationException for a HID device
     */
    UsbSubscription onData(int endpoint, int size, UsbInputListener listener, Executor executor);
}
