/**
 * A safe way to USB tools, for new programs: sessions, lists and devices as objects, arguments that are checked,
 * failures as exceptions, and no rules about threads. It stands on {@link com.talvane.orvex.comm.ORVEXCommUSBAccess},
 * whose rules it keeps.
 *
 * <pre>{@code
 * try (UsbSession session = UsbSession.open()) {
 *     UsbDeviceList tools = session.list(0x6A5C, 0x6A5D);
 *     try (UsbDevice tool = tools.find("ECHO0001").orElseThrow().open()) {
 *         byte[] bytes = {1, 2, 3};
 *         tool.writeBulk(0x01, bytes, 0, bytes.length, 1000);
 *         int read = tool.readBulk(0x81, bytes, 0, bytes.length, 1000);
 *     }
 * }
 * }</pre>
 *
 * <h2>Threads</h2>
 *
 * <p>Any method may be called on any thread at any time. There are three locks, taken in this order:
 * <ol>
 * <li><b>the lock of an endpoint</b>, for as long as a transfer takes: one transfer at a time on each. All control
 *     requests of a device have one, a HID device one for reads and one for writes. The lock of the control requests
 *     may be taken beneath that of another endpoint, never the other way round;</li>
 * <li><b>the session lock</b>, one in the process: all calls about sessions, lists and their devices, and opens,
 *     closes and resets, one at a time;</li>
 * <li><b>the gate</b> of the session, held for moments: each transfer passes it when it starts and when it has ended.
 *     An open, close or reset, which has the session lock, shuts it, so that no transfer starts meanwhile.</li>
 * </ol>
 * Nobody who has the session lock waits for an endpoint's; nobody who is in a transfer waits for the session lock.
 *
 * <p>While the gate is shut, transfers that are under way go on, once it is certain that they are: that they can be
 * cancelled shows it. So an open, close or reset cancels reads on other devices that take longer than a moment, and
 * they are taken up again with what is left of their bytes and of their time; nothing that came is lost, and their
 * callers see nothing of it. Writes and control requests cannot be taken up again, so they are waited for, which is
 * why they have no endless time-out. HID reads cannot be cancelled; they are made of raw reads of a report and a tenth
 * of a second at most, which lose nothing when their time runs out.
 */
package com.talvane.orvex.comm.access;
