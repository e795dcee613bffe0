/**
 * A safe way to USB tools, for new programs: sessions, lists and devices as objects, arguments that are checked,
 * failures as exceptions, listeners, streams and futures. Any method may be called on any thread at any time. It stands
 * on {@link com.talvane.orvex.comm.ORVEXCommUSBAccess}, whose rules it keeps for its callers.
 *
 * <pre>{@code
 * try (UsbSession session = UsbSession.open()) {
 *     UsbDeviceList tools = session.list(0x6A5C, 0x6A5D);
 *     try (UsbDevice tool = tools.find("ECHO0001").orElseThrow().open()) {
 *         byte[] answer = new byte[512];
 *         tool.writeFully(0x01, new byte[] {1, 2, 3}, 0, 3, 1000);
 *         int length = tool.readBulk(0x81, answer, 0, answer.length, 1000);
 *     }
 * }
 * }</pre>
 *
 * <h2>Recipes</h2>
 *
 * <p><b>Wait for a device.</b> Listen first, then look: so it is not missed in between.
 * <pre>{@code
 * BlockingQueue<UsbDevice> found = new LinkedBlockingQueue<>();
 * try (UsbSubscription plugs = session.onChange(change -> {
 *     if (change.kind() != UsbChange.Kind.LEFT && change.device().info().serial().equals("ECHO0001")) {
 *         found.add(change.device());
 *     }
 * })) {
 *     tools.find("ECHO0001").ifPresent(found::add);
 *     UsbDevice tool = found.take();
 * }
 * }</pre>
 *
 * <p><b>Write or read all</b> of it: {@link UsbDevice#writeFully}, {@link UsbDevice#readFully}, or {@link UsbOutput}
 * and {@link UsbInput} as streams. The exception tells how much had {@linkplain UsbException#moved moved}.
 *
 * <p><b>Try again.</b> A time-out and a stalled request leave the device as it is, so the next attempt may do. A device
 * that is gone has to be closed, and opened when it is back.
 * <pre>{@code
 * for (int attempt = 1; ; attempt++) {
 *     try {
 *         return tool.readControl(0xC0, 2, 0x1234, 0, 7, 1000);
 *     } catch (UsbTimeoutException | UsbStalledException e) {
 *         if (attempt == 3) {
 *             throw e;
 *         }
 *     }
 * }
 * }</pre>
 *
 * <p><b>Devices that look the same.</b> {@link UsbDeviceList#find} refuses to choose among those of one serial number;
 * of those without any, and of a device that left because its texts could not be read, {@link UsbDevice#doubt} tells.
 * <pre>{@code
 * for (UsbDevice tool : tools.devices()) {
 *     System.out.println(tool + " at port " + tool.info().ports() + ", in doubt: " + tool.doubt());
 * }
 * }</pre>
 *
 * <p><b>HID question and answer.</b> Reports have one size, so the question is filled up and the answer is a whole one.
 * <pre>{@code
 * byte[] answer = new byte[64];
 * hid.writeReports(question, 0, question.length, 1000);
 * hid.readReports(answer, 0, answer.length, 1000);
 * }</pre>
 *
 * <p><b>Draw what comes.</b> {@code device.onData(0x81, 512, bytes -> label.setText(...),
 * SwingUtilities::invokeLater)}.
 *
 * <p><b>Test without a device.</b> {@link UsbDevice} is an interface: give your code one of your own.
 *
 * <h2>Threads</h2>
 *
 * <p>There are two locks. No thread waits for one of them while it has another:
 * <ul>
 * <li><b>the lock of an endpoint</b>, for as long as a transfer takes: one transfer at a time on each. All control
 *     requests of a device have one, a HID device one for reads and one for writes;</li>
 * <li><b>the session lock</b>, one in the process: all calls about sessions, lists and their devices, and opens,
 *     closes and resets, one at a time.</li>
 * </ul>
 *
 * <p>So transfers go on while other devices are opened, closed and reset. A close cancels the transfers of its own
 * device and waits for them. A reset waits for the writes and control requests of its own device, which is why they
 * have no endless time-out, and holds up its reads.
 *
 * <p><b>Listeners</b> are called without a lock, each one's calls one after another, on threads of the session that do
 * not keep the program alive, or by an executor. They may call any method. When a close has returned, none of what it
 * closed is called any more.
 *
 * <p><b>Interrupts</b>: a transfer of a thread that is interrupted is cancelled, and throws {@link
 * UsbInterruptedException}; the interrupt status stays set. The interrupting thread waits until the transfer has ended,
 * for seconds at most. Opens, closes and everything about lists take no notice.
 *
 * <p><b>Arrays</b> that are given to a transfer belong to it until it returns: no other thread changes them meanwhile.
 *
 * <h2>Where time goes, and why something failed</h2>
 *
 * <p>Java's flight recorder gets an event for each open, close, reset, update of a list and transfer:
 * {@code com.talvane.orvex.Device}, {@code com.talvane.orvex.ListUpdate}, {@code com.talvane.orvex.Transfer}. The
 * {@link System.Logger} with the name of this package is told at the level DEBUG which sessions, devices and opens
 * there are and what failed, and at the level WARNING what a listener has thrown and which devices could not be read. Its
 * handlers are called without the locks above.
 */
package com.talvane.orvex.comm.access;
