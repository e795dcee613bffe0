package com.talvane.orvex.comm;

/**
 * Access to USB tools: sessions, device lists, opening and closing, and transfers.
 *
 * <p>Every method blocks until it is done and reports failures through its result; none throws. Call them in this
 * order:
 *
 * <pre>{@code
 * ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
 * int session = usb.usbInitialize();
 * int list = usb.usbCreateDeviceList2(session, new int[] {0x6A5C, 0x6A5D});
 * for (int i = 0; i < usb.usbGetDeviceListCount(list); i++) {
 *     System.out.println(usb.usbGetDeviceInfo(list, i));
 * }
 * if (usb.usbOpenDevice(list, 0) == 0) {
 *     byte[] data = {1, 2, 3};
 *     int moved = usb.usbWriteBulkPipe(list, 0, 0x01, data.length, 1000, data);
 *     usb.usbCloseDevice(list, 0);
 * }
 * usb.usbReleaseDeviceList(list);
 * usb.usbRelease(session);
 * }</pre>
 *
 * <h2>Results</h2>
 *
 * <p>A result of 0 or more is success: a handle, a count of records or a count of bytes. A negative result is a code of
 * {@link UsbAccessCode}, which has a text for each. Codes of -101 and below are this library's own; -1 to -99 come from
 * libusb, unchanged. When memory runs out, a call returns -11 unless it documents another code for this case; a look-up
 * that runs out of memory reports "not found".
 *
 * <h2>Naming a device</h2>
 *
 * <p>A device is named by a <i>list handle</i> and an <i>index</i>. Handles count up from 0 for as long as the library
 * is loaded and are never reused. An index is a position in its list, from 0 to {@link #usbGetDeviceListCount} - 1. A
 * device keeps its index: an unplugged device is marked absent and becomes present again, under the same index, when it
 * returns with the same identity. New devices are added at the end. No device is removed before its list is released: a
 * device that returns with a different serial number each time takes memory each time. For a pair that names no device,
 * calls return -114. The index of an open device stays valid until the device is closed.
 *
 * <p>Keep one list for each set of vendor ids, for the whole session. A change on the bus marks only the first list of
 * the session that has the vendor id concerned, even when that list is empty or has been released; a second list with
 * the same vendor id stays as it was created.
 *
 * <h2>Threads</h2>
 *
 * <p>The methods are not synchronised. The caller must see to it that
 * <ul>
 * <li>{@link #usbInitialize} runs alone, and {@link #usbRelease} beside transfers and cancels only;</li>
 * <li>calls that create, update or release a list, or open, close or reset a device, run one at a time;</li>
 * <li>calls that query a list or its devices (count, information, descriptors, endpoints) do not run together with
 *     calls that create, update or release a list; they may run together with all others and with each other;</li>
 * <li>at most one transfer at a time runs on an endpoint. Transfers on different endpoints or devices may run at the
 *     same time on different threads. All control transfers of a device, and bulk or interrupt writes to endpoint
 *     0x00, count as one endpoint;</li>
 * <li>{@link #usbCancelPipeTransfer} is the one call that is intended for use while another thread is in a transfer on
 *     the same endpoint.</li>
 * </ul>
 * Transfers and cancels may start and run while another thread opens or closes a device, creates, updates or releases a
 * list, or ends the session. One that starts while its own device is closed, its list is released or its session ends
 * either runs and is cancelled, or returns -109 or -114.
 *
 * <p>A transfer that still runs when its device is closed, its list is released or the session ends is cancelled first;
 * its method returns the number of bytes moved so far. The closing call waits for it, for up to 3 seconds for each
 * device; if the transfer has not ended by then, the device stays claimed (see {@link #usbCloseDevice}).
 *
 * <h2>Transfers</h2>
 *
 * <p>An endpoint is given by its USB address; only the low 8 bits are used. Writes clear the direction bit 0x80 and
 * reads set it, so 0x01 and 0x81 are equivalent in both. For an endpoint number above 0x0F, calls return -109.
 *
 * <p>Time-outs are in milliseconds. <b>A time-out of 0 waits for ever.</b> A negative value is interpreted as an
 * unsigned 32-bit number, which is 24 to 50 days.
 *
 * <p><b>A transfer that ends early is not an error.</b> When the device stalls, is unplugged or sends less, or the
 * transfer is cancelled, the result is the number of bytes moved until then, often 0. Only a transfer that times out
 * returns -150; bytes that it moved before that are not counted.
 *
 * <h2>HID devices</h2>
 *
 * <p>HID devices (type letter {@code h} in the information line) are accessed through the operating system's HID
 * service: interrupt transfers only, in whole reports. Bulk and control transfers, cancel and reset return -120 for
 * them. Close HID devices before you release their list: the release does not close them.
 * <ul>
 * <li>From open to close the library collects the device's reports in a buffer of about 64,000 bytes. When the buffer
 *     is full, the oldest report is dropped. Reports that were not read before a close can be read after the next
 *     open.</li>
 * <li>Reports are 64 bytes long, or as long as the packet size of the calls that have one; a device of vendor 0x6A5D
 *     starts with 512, until the first call without a packet size. Input reports have the length that was set when the
 *     device was opened: to change it, make a call with the new packet size, then close the device and open it again.
 *     Read all reports before that: with reports of two lengths in the buffer, the library loses the boundaries between
 *     reports, and may return old reports again.</li>
 * <li>A shorter report from the device is returned at full length; the bytes after its end are left over from earlier
 *     reports. Some versions of the Linux kernel do not deliver such a report at all.</li>
 * <li>A read with a time-out of 0 or less times out at once. <b>While a read waits it keeps a processor core busy</b>,
 *     and a cancel does not end it: use short time-outs. Reports that a read took before it timed out are lost to the
 *     next read. A read of 0 or fewer bytes takes all reports until it times out, and returns -150.</li>
 * <li>A write passes each report to the system, which ignores the time-out: Linux gives up after about 5 seconds;
 *     macOS, according to its published sources, after 1 to 5 seconds or, with older HID drivers, never.</li>
 * <li><b>Do not open or close on a thread that draws the user interface.</b> A close waits, keeping a core busy, for
 *     the thread that collects the reports and for a report that is being sent, up to 20 seconds for each. So does an
 *     open that has to end an earlier opening first.</li>
 * <li>Reads, opens and closes measure their time by the wall clock: when it is set back, they take that much
 *     longer.</li>
 * </ul>
 *
 * <h2>Buffers</h2>
 *
 * <p>Every buffer belongs to the caller and is used only until the method returns; no other thread may change it
 * meanwhile. Each method states the required length. A shorter buffer is safe: a read stores what fits, a write sends
 * the missing bytes as zeroes. A transfer of bytes with a null buffer returns -112 or -113.
 *
 * <h2>The native library</h2>
 *
 * <p>The first use of this class loads the native library. If the system property {@code orvex.usb.library} is set, it
 * loads the file with that absolute path and tries no other place. Otherwise it loads {@code USBAccessLink} from
 * {@code java.library.path}. If the library is not there, it loads the copy in the jar, which it unpacks into a folder
 * that belongs to the user alone (in the user's cache, the folder of the login session or the temporary folder).
 *
 * <p>The library needs libusb-1.0, and on Linux hidapi. If on Linux the copy in the jar does not find one of the two,
 * the jar's copy of that one is unpacked and loaded as well; any value of the system property
 * {@code orvex.usb.fallback} other than {@code true} disables this. It does not apply to a library that was selected by
 * {@code orvex.usb.library} or found in {@code java.library.path}. libudev has to be installed.
 *
 * <p>Each class loader that loads this class gets a copy of the library with its own session, lists and open devices. A
 * file that the property or the path names can be loaded by one class loader only. End the session before you discard a
 * class loader: the library is unloaded with it, and HID devices that are still open are closed.
 *
 * <p>A virtual machine that restricts native code needs the option
 * {@code --enable-native-access=com.talvane.orvex.comm}, or {@code --enable-native-access=ALL-UNNAMED} when the jar is
 * on the class path.
 *
 * <h2>Debug output</h2>
 *
 * <p>While the environment variable {@code ORVEXCOMM_DEBUG} is set, to any value, the library writes a trace to the
 * standard error stream. Do not calculate with its time stamps. In lines with {@code [ORVEXCOMM_DBG]} the seconds count
 * from the first such line and the fraction is that of the clock, so the stamp may run backwards within a second. In
 * all other lines it is the wall clock in milliseconds, which restarts at 0 every 48.5 days.
 */
public class ORVEXCommUSBAccess {
    static {
        NativeLibrary.load();
    }

    /**
     * Creates an access object. It has no state: the session, the lists and the open devices belong to the library that
     * its class loader has loaded, so all objects of this class are equivalent.
     *
     * @throws UnsatisfiedLinkError at the first use of the class, when the native library cannot be loaded; the message
     *         lists the places that were tried
     */
    public ORVEXCommUSBAccess() {
    }

    // ------------------------------------------------------------------------------------------------- session

    /**
     * Opens the session: starts libusb and a thread that listens for devices that are plugged in or unplugged. There is
     * at most one session for each class loader that has loaded this class, usually one in a process.
     *
     * <p>Threads: not while any other method runs.
     *
     * @return the session id for later calls, always 0; -115 when a session is already open (it is not changed); or
     *         libusb's code (-1 to -99) when libusb cannot start
     */
    public native int usbInitialize();

    /**
     * Ends the session. Close all devices and release all lists first: records of unreleased lists can still be
     * counted, but opening them returns -107 and transfers on them return -109 from then on.
     *
     * <p>Threads: beside transfers and cancels only. Takes up to about a second, until the listening thread has ended,
     * and up to 3 seconds more for each device with a transfer that does not end.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @return 0; or -116 when this is not the id of the open session (nothing changes)
     */
    public native int usbRelease(int sessionId);

    /**
     * Returns the version of this library, not that of libusb. No session needs to be open.
     *
     * <p>Threads: any, at any time.
     *
     * @return the version times 100: 347 for version 3.47
     */
    public native int usbGetLibVersion();

    // ------------------------------------------------------------------------------------------------- lists

    /**
     * Creates a list of the devices of one vendor, or of all. If the session has a list for exactly this vendor id that
     * is not empty, that list is returned unchanged.
     *
     * <p>The library does not watch this vendor id for devices that are plugged in or unplugged:
     * {@link #usbUpdateDeviceList} updates the list only if a list from {@link #usbCreateDeviceList2} watches the same
     * id and this list was created first. Prefer {@link #usbCreateDeviceList2}.
     *
     * <p>Threads: not together with other session, list, open or close calls. Each listed device is opened briefly to
     * read its strings and descriptors, which takes some milliseconds, or up to some seconds when a device does not
     * respond.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @param vendorId  the USB vendor id, 0x0000 to 0xFFFF; -1 (0xFFFFFFFF) for the devices of all vendors
     * @return the list handle, 0 or more, also when no device was found or libusb could not enumerate the devices; -11
     *         when memory runs out; or -116 when this is not the id of the open session
     */
    public native int usbCreateDeviceList(int sessionId, int vendorId);

    /**
     * Creates a list of the devices of up to sixteen vendors, and watches these vendor ids for devices that are plugged
     * in or unplugged. If the session has a list for the same ids, in any order, that is not empty, that list is
     * returned unchanged (it is not updated).
     *
     * <p>If libusb refuses to watch a vendor id, its devices are listed all the same and no result reports the refusal;
     * {@link #usbUpdateDeviceList} then does not notice when such devices are plugged in or unplugged. A list none of
     * whose ids is watched stays as it was created. A list also does not notice changes to an id that an earlier list
     * of the session has, even if that list is empty or released (see "Naming a device").
     *
     * <p>Threads: not together with other session, list, open or close calls. Each listed device is opened briefly to
     * read its strings and descriptors, which takes some milliseconds, or up to some seconds when a device does not
     * respond. A device that cannot be opened is listed with the text {@code <cannot_open>VVVV:PPPP} (vendor and
     * product id) as manufacturer and product.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @param vendorIds USB vendor ids, each 0x0000 to 0xFFFF; those after the sixteenth are ignored, and -1 matches
     *                  nothing. An empty array (or null) creates a list without devices, unless the session has a list
     *                  that is not empty and whose first id is -1, such as that of {@link #usbCreateDeviceList} for all
     *                  vendors: then that list is returned. The array is not changed
     * @return the list handle, 0 or more, also when no device was found or libusb could not enumerate the devices; -11
     *         when memory runs out; or -116 when this is not the id of the open session (the array is not read)
     */
    public native int usbCreateDeviceList2(int sessionId, int[] vendorIds);

    /**
     * Updates a list after devices have been plugged in or unplugged. It enumerates the devices of all vendor ids of
     * the list again, but only if the operating system has notified the library of a change that concerns this list
     * (see "Naming a device"). Without a notification, as for a vendor id that could not be watched or that an earlier
     * list has, it does nothing and returns 0. So the call is cheap and may be made often. Just after a change the
     * notification may not have arrived yet: call it again.
     *
     * <p>Absent devices keep their index, with presence 0; devices that have returned get presence 1 in their old
     * record; others are added at the end. A device is the same if vendor id, product id, release, manufacturer,
     * product and serial number are equal. A device that was unplugged and plugged in again while open has to be opened
     * again. Two devices that are equal in all of these, for example without serial numbers, are distinguished only by
     * their order on the bus: when one of them is unplugged, the other may get its index. The device counts as closed
     * under that index; if it was open, it still is under its old index.
     *
     * <p>An attached device that cannot be opened during the update, or one of whose strings cannot be read then, does
     * not match its record: the record gets presence 0, and a new record without the string is added. The next update
     * that can read the string corrects this. If libusb cannot enumerate the devices at all, the result is 0 and all
     * devices have presence 0 until the next change.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param unused     has no effect; pass 0
     * @return 0, whether or not anything changed; -11 when memory runs out; -103 when no list has this handle; -104
     *         when there are no lists at all
     */
    public native int usbUpdateDeviceList(int listHandle, int unused);

    /**
     * Empties a list and frees its records. Close its open devices first. The handle remains valid: it names a list of
     * 0 devices, which may be released again.
     *
     * <p>Threads: not together with other session, list, open or close calls. Takes up to 3 seconds for each device
     * with a transfer that does not end.
     *
     * @param listHandle the list
     * @return 0; -103 when no list has this handle; -104 when there are no lists at all
     */
    public native int usbReleaseDeviceList(int listHandle);

    /**
     * Counts the records of a list, absent devices included.
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @return the number of records; 0 for an empty, released or unknown list
     */
    public native int usbGetDeviceListCount(int listHandle);

    /**
     * Describes one device in one line of twelve fields, separated by {@code :=}:
     *
     * <pre>{@code 1:=6A5C:=1001:=0100:=Talvane:=Echo Tool:=ECHO0001:=x:=b:=0:=0:=end}</pre>
     *
     * <ol>
     * <li>presence at the latest update: 1, or 0 when the device is absent</li>
     * <li>vendor id, four upper-case hexadecimal digits</li>
     * <li>product id, likewise</li>
     * <li>release number of the device (bcdDevice), likewise</li>
     * <li>manufacturer: up to 125 characters, {@code ?} when the device has none; characters above 0xFF are replaced by
     *     a question mark</li>
     * <li>product (for an interface of a composite device: the name of the interface)</li>
     * <li>serial number (for an interface of a composite device: followed by an underscore and the number of the
     *     interface in two hexadecimal digits)</li>
     * <li>always {@code x}</li>
     * <li>type: {@code h} HID device, {@code u} class that this library does not support, {@code b} any other</li>
     * <li>family: 0 plain device, 1 composite device, 2 interface of a composite device</li>
     * <li>interface number, decimal; 0 for a whole device</li>
     * <li>always {@code end}</li>
     * </ol>
     *
     * <p>The line is cut after 511 characters and then lacks its end mark. Strings are not escaped, even if they
     * contain {@code :=}.
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return the line; the empty string when there is no such device
     */
    public native String usbGetDeviceInfo(int listHandle, int index);

    /**
     * Reserved for the description of a device whose presence changed. The library keeps no list of changes, so the
     * result is always empty: compare field 1 of {@link #usbGetDeviceInfo} before and after
     * {@link #usbUpdateDeviceList} instead.
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return the empty string, always
     */
    public native String usbGetChangeInfo(int listHandle, int index);

    // ------------------------------------------------------------------------------------------------- open and close

    /**
     * Opens a device of a list and claims its interface (interface 0, or that of the composite part). A device in
     * another configuration is set to configuration 1. For a HID device the result is 0 even when its HID service
     * cannot be opened: writes then return -109 and reads -150. (According to its published sources, macOS opens HID
     * devices only for the user at the Mac's own screen, not over ssh, and those that act like a keyboard only with the
     * permission Input Monitoring.) A device that was unplugged while open and has returned is closed first and then
     * opened again.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -11 when memory for the open-device entry runs out; -105 when the device is already open (it stays
     *         open); -107 when it cannot be opened (no permission, no memory for its transfers, unplugged since the
     *         last update, its session has ended, or a transfer of an earlier opening has still not ended); -108 when
     *         its interface cannot be claimed, because another program or a driver uses it; -114 when there is no such
     *         device; -130 when configuration 1 cannot be set; -131 when it is absent; -158 when the library does not
     *         support its class. After any of these codes except -105 the device is closed
     */
    public native int usbOpenDevice(int listHandle, int index);

    /**
     * Closes an open device. Transfers of other threads that still run on it are cancelled first. Whatever the result,
     * the device counts as not open afterwards.
     *
     * <p>If a transfer has not ended after 3 seconds, the device stays claimed; the same holds when the release of its
     * list waited for the transfer. Later calls of this method try again to free the device, even when they return -114
     * because the device counts as closed, and so do {@link #usbOpenDevice} and {@link #usbReleaseDeviceList}. A HID
     * device whose waits (see "HID devices") time out stays open for good, because a thread still uses it; the result
     * is 0 all the same.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -109 when there was nothing left to close, because the device was unplugged and plugged in again
     *         meanwhile, or its HID service could not be opened; -114 when it was not open
     */
    public native int usbCloseDevice(int listHandle, int index);

    /**
     * Resets the port of an open device, as if it had been unplugged and plugged in again; the configuration stays the
     * same.
     *
     * <p>Threads: not together with session, list, open or close calls, nor with transfers on the device.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -109 when the device has been plugged in again meanwhile; -114 when it is not open; -120 for a HID
     *         device; or libusb's code: -5 when the device is not the same after the reset (close it, update the list
     *         and open it again)
     */
    public native int usbResetDevice(int listHandle, int index);

    /**
     * Not supported: the library cannot restart a device.
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list; it need not be open
     * @return -120; or -114 when there is no such device
     */
    public native int usbRestartDevice(int listHandle, int index);

    /**
     * Not supported: the library cannot reset a single pipe.
     *
     * <p>Threads: any.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address
     * @return -120; or -114 when the device is not open
     */
    public native int usbResetPipe(int listHandle, int index, int endpoint);

    /**
     * Cancels the transfer that another thread waits for. It does not wait until the transfer has ended; the other
     * thread's call returns soon after, with the number of bytes moved so far. Of {@link #usbWriteInterruptPipeEx} it
     * cancels one packet, which counts as sent; the next packet is sent.
     *
     * <p>Threads: any.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address with its direction bit: 0x81 cancels a read, 0x01 a write, 0x00 a control
     *                   transfer
     * @return 0; -109 when the device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -114
     *         when it is not open; -120 for a HID device; or libusb's code: -5 when no transfer was running on the
     *         endpoint
     */
    public native int usbCancelPipeTransfer(int listHandle, int index, int endpoint);

    // ------------------------------------------------------------------------------------------------- control pipe

    /**
     * Makes a control transfer, usually for a request that sends data to the device. The setup packet determines the
     * direction, so this method and {@link #usbReadControlPipe} differ only in the code for a transfer that cannot
     * start.
     *
     * <p>The buffer starts with the setup packet; the data of the request start at byte 8:
     *
     * <table>
     * <caption>The first 8 bytes of the buffer</caption>
     * <tr><th>bytes</th><th>field</th></tr>
     * <tr><td>0</td><td>bmRequestType; bit 0x80 set: the device sends the data</td></tr>
     * <tr><td>1</td><td>bRequest</td></tr>
     * <tr><td>2, 3</td><td>wValue, low byte first</td></tr>
     * <tr><td>4, 5</td><td>wIndex, low byte first</td></tr>
     * <tr><td>6, 7</td><td>wLength, low byte first: the number of data bytes</td></tr>
     * </table>
     *
     * <p>Threads: one control transfer at a time on a device.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param ignored    has no effect; pass 0
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     setup packet and data: at least 8 + wLength bytes
     * @return the number of data bytes moved (without the setup packet), 0 to 65535, also after a stall or a time-out,
     *         which usually give 0; -109 when the device has been plugged in again meanwhile; -112 when the transfer
     *         could not be started; -114 when the device is not open; -120 for a HID device
     */
    public native int usbWriteControlPipe(int listHandle, int index, int ignored, int timeout, byte[] buffer);

    /**
     * Makes a control transfer, usually for a request that gets data from the device. The data are stored in the buffer
     * from byte 8 on, after the setup packet. {@link #usbWriteControlPipe} describes the setup packet.
     *
     * <p>Threads: one control transfer at a time on a device.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param ignored    has no effect; pass 0
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     setup packet and room for the data: at least 8 + wLength bytes
     * @return the number of data bytes moved (without the setup packet), 0 to 65535, also after a stall or a time-out,
     *         which usually give 0; -109 when the device has been plugged in again meanwhile; -113 when the transfer
     *         could not be started; -114 when the device is not open; -120 for a HID device
     */
    public native int usbReadControlPipe(int listHandle, int index, int ignored, int timeout, byte[] buffer);

    // ------------------------------------------------------------------------------------------------- bulk pipes

    /**
     * Writes to a bulk endpoint.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared
     * @param length     the number of bytes to write, 0 or more; 0 sends an empty packet
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     the bytes: at least {@code length} of them
     * @return the number of bytes written, 0 to {@code length}, also after a stall, a cancel or an unplug; -109 when
     *         the device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -112 when the
     *         transfer could not be started (also for a negative length); -114 when the device is not open; -120 for a
     *         HID device; -150 when the transfer timed out
     */
    public native int usbWriteBulkPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Reads from a bulk endpoint. The read ends when {@code length} bytes have come, or earlier with a packet that is
     * shorter than the endpoint's packet size; request a multiple of that size: otherwise the device may send more than
     * was requested, and the read ends with the bytes received before.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set
     * @param length     the maximum number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     receives the bytes: at least {@code length}
     * @return the number of bytes read, 0 to {@code length}, also after a stall, a cancel or an unplug; -109 when the
     *         device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -113 when the transfer
     *         could not be started (also for a negative length); -114 when the device is not open; -120 for a HID
     *         device; -150 when the transfer timed out (bytes received before that are in the buffer, but not counted)
     */
    public native int usbReadBulkPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Writes to a bulk endpoint, exactly like {@link #usbWriteBulkPipe}: the last two arguments have no effect.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared
     * @param length     the number of bytes to write, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     the bytes: at least {@code length} of them
     * @param packetSize has no effect, any value is accepted
     * @param fillValue  has no effect
     * @return as {@link #usbWriteBulkPipe}
     */
    public native int usbWriteBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    /**
     * Reads from a bulk endpoint, exactly like {@link #usbReadBulkPipe}: the last two arguments have no effect.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set
     * @param length     the maximum number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     receives the bytes: at least {@code length}
     * @param packetSize has no effect, any value is accepted
     * @param fillValue  has no effect
     * @return as {@link #usbReadBulkPipe}
     */
    public native int usbReadBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    // ------------------------------------------------------------------------------------------------- interrupt pipes

    /**
     * Writes to an interrupt endpoint. A HID device gets the bytes in whole reports of 64 bytes; the last report is
     * padded with 0x5A.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared. A HID device ignores it
     * @param length     the number of bytes to write, 0 or more
     * @param timeout    in milliseconds, 0 for ever; without effect on a HID device
     * @param buffer     the bytes: at least {@code length} of them
     * @return the number of bytes written, 0 to {@code length}, also after a stall, a cancel or an unplug; -109 when
     *         the device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -112 when the
     *         transfer could not be started (also for a negative length; a HID device is then sent nothing and the
     *         result is 0) or a report could not be sent; -114 when the device is not open; -150 when the transfer
     *         timed out (never for a HID device)
     */
    public native int usbWriteInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Reads from an interrupt endpoint. From a HID device exactly {@code length} bytes are read, from as many reports
     * of 64 bytes as necessary; the rest of the last report is dropped.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set. A HID device ignores it
     * @param length     the number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever; for a HID device 0 or less returns -150 at once
     * @param buffer     receives the bytes: at least {@code length}
     * @return the number of bytes read, 0 to {@code length}, also after a stall, a cancel or an unplug; -109 when the
     *         device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -113 when the transfer
     *         could not be started (also for a negative length, but not from a HID device); -114 when the device is not
     *         open; -150 when the transfer timed out (bytes received before that are in the buffer, but not counted)
     */
    public native int usbReadInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Writes to an interrupt endpoint in packets (for a HID device: reports) of a given size. The last one is padded to
     * that size.
     *
     * <p>A packet that the device accepts only in part counts as written, and so does one that is cancelled by
     * {@link #usbCancelPipeTransfer}. When a packet fails, those before it are not counted, although they were sent.
     * When the device is closed, its list is released or the session ends meanwhile, no further packet is sent, and the
     * result is the number of bytes actually moved: those of the packets before and of the cancelled one.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared. A HID device ignores it
     * @param length     the number of bytes to write; with 0 or less nothing is sent
     * @param timeout    for each packet, in milliseconds, 0 for ever; without effect on a HID device
     * @param buffer     the bytes: at least {@code length} of them
     * @param packetSize the size of each packet in bytes, 64 to 1024
     * @param fillValue  its low 8 bits pad the last packet
     * @return the number of bytes written, without the padding: {@code length} when every packet was sent; -109 when
     *         the device has been plugged in again meanwhile, or for an endpoint number above 0x0F; -112 when a packet
     *         could not be started or sent; -114 for a packet size below 64 or above 1024, and when the device is not
     *         open; -150 when the transfer timed out
     */
    public native int usbWriteInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    /**
     * Reads from an interrupt endpoint. For a HID device the packet size is the size of its reports. For any other
     * device it is only checked; apart from that the call is the same as {@link #usbReadInterruptPipe}.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set. A HID device ignores it
     * @param length     the number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever; for a HID device 0 or less returns -150 at once
     * @param buffer     receives the bytes: at least {@code length}
     * @param packetSize in bytes, 64 to 1024
     * @param fillValue  has no effect on what is read
     * @return as {@link #usbReadInterruptPipe}; and -114 for a packet size below 64 or above 1024
     */
    public native int usbReadInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    // ------------------------------------------------------------------------------------------------- descriptors

    /**
     * Returns a descriptor that was read when the device was listed; the device is not queried and need not be open.
     *
     * <table>
     * <caption>The result, by descriptor type</caption>
     * <tr><th>type</th><th>index</th><th>result</th></tr>
     * <tr><td>1 device</td><td>has no effect</td><td>the 18 bytes of the device descriptor, <b>whatever</b>
     *     {@code bufferSize} is</td></tr>
     * <tr><td>2 configuration</td><td>has no effect</td><td>the first configuration with all its interfaces and
     *     endpoints, up to 512 bytes and not more than the active configuration has; for an interface of a composite
     *     device the part that belongs to that interface</td></tr>
     * <tr><td>3 string</td><td>1 manufacturer, 2 product, 3 serial number</td><td>the text, one byte for each character
     *     (ISO 8859-1), followed by a zero byte (not a USB string descriptor). The result is the length of the text.
     *     When the text does not fit with its zero byte, it is cut, a zero byte ends it, and the result is {@code
     *     bufferSize}; with a {@code bufferSize} below 2 nothing is stored then</td></tr>
     * <tr><td>5 endpoint</td><td>the endpoint address (low 8 bits)</td><td>the 7 bytes of the endpoint descriptor, or
     *     fewer for a {@code bufferSize} of 1 to 6</td></tr>
     * </table>
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle      the list
     * @param index           the device's position in the list
     * @param descriptorType  1, 2, 3 or 5
     * @param descriptorIndex by type, as above
     * @param bufferSize      the maximum number of bytes to store, by type, as above
     * @param buffer          receives the bytes: at least 18 for type 1, 7 for type 5, {@code bufferSize} for others
     * @return the number of bytes, by type, as above; -11 when the buffer is too short and memory for a copy runs out;
     *         -114 when there is no such device, for type 4 and any other type, and for a string index outside 1 to 3;
     *         -131 when the device could not be read when it was listed, or has no such endpoint
     */
    public native int usbGetDeviceDescriptor(int listHandle, int index, int descriptorType, int descriptorIndex,
            int bufferSize, byte[] buffer);

    /**
     * Returns the endpoints of the device's interface that were read when the device was listed; it need not be open.
     * For each endpoint eight bytes are stored, four 16-bit numbers with the low byte first: the endpoint address, the
     * packet size (wMaxPacketSize), the attributes (2 bulk, 3 interrupt), and the direction (1 in, 0 out).
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param buffer     receives the bytes: at least 8 for each endpoint, 128 are always enough; null to get only the
     *                   number
     * @return the number of endpoints, 0 to 16; -11 when the buffer is too short and memory for a copy runs out; or
     *         -114 when there is no such device
     */
    public native int usbGetEndpointList(int listHandle, int index, byte[] buffer);
}
