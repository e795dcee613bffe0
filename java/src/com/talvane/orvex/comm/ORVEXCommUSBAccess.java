package com.talvane.orvex.comm;

/**
 * Access to USB tools: sessions, device lists, opening and closing, and transfers.
 *
 * <p>Every method blocks until it is done and reports by its result alone; none throws. The order of use is:
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
 * <p>A result of 0 or more is success: a handle, a count of records or a count of bytes. A negative result is a code
 * of {@link UsbAccessCode}, which has a text for each. Codes of -101 and below are this library's own; -1 to -99 come
 * from libusb, unchanged. When there is no memory, calls answer -11 that have no other code for it, and what has to be
 * looked up counts as not found.
 *
 * <h2>Naming a device</h2>
 *
 * <p>A device is named by a <i>list handle</i> and an <i>index</i>. Handles count up from 0 for as long as the library
 * is loaded and are never given out twice. An index is a position in its list, from 0 to one below
 * {@link #usbGetDeviceListCount}; it never moves: a device that is pulled keeps its place, is marked absent, and gets
 * it back when it returns with the same identity. New devices are added at the end, and none is forgotten before its
 * list is released: a device that comes back with another serial number each time takes memory each time. Any pair
 * that names nothing is answered with -114. An index of an open device stays valid until it is closed.
 *
 * <p>Keep one list for each set of vendor ids, for the whole session. A change on the bus is noted in the first list
 * of the session only that has the vendor id concerned, even when that list is empty or has been released; a second
 * list with the same vendor id stays as it was made.
 *
 * <h2>Threads</h2>
 *
 * <p>The methods are not synchronised. The caller must see to it that
 * <ul>
 * <li>{@link #usbInitialize} runs alone, and {@link #usbRelease} beside transfers and cancels only;</li>
 * <li>calls that make, update or release a list, or open, close or reset a device, run one at a time;</li>
 * <li>calls that ask about a list or its devices (count, information, descriptors, endpoints) do not run together with
 *     those that make, update or release one, but with all others and with each other;</li>
 * <li>at most one transfer at a time runs on an endpoint. Transfers on different endpoints or devices may run at the
 *     same time on different threads. All control transfers of a device, and bulk or interrupt writes to endpoint
 *     0x00, count as one endpoint;</li>
 * <li>{@link #usbCancelPipeTransfer} is the one call that is meant to be made while another thread is in a transfer
 *     on the same endpoint.</li>
 * </ul>
 * Transfers and cancels may start and run while another thread opens or closes a device, makes, updates or releases a
 * list, or ends the session. One that starts while its own device is closed, its list is released or its session ends
 * either runs and is cancelled, or answers -109 or -114.
 *
 * <p>A transfer that still runs when its device is closed, its list is released or the session ends is cancelled first;
 * its thread comes back with the bytes moved so far. These calls wait for it, for up to 3 seconds on each device; when
 * it has not come back by then, the device stays claimed (see {@link #usbCloseDevice}).
 *
 * <h2>Transfers</h2>
 *
 * <p>An endpoint is given by its USB address (its low 8 bits count): writes clear the direction bit 0x80, reads set
 * it, so that 0x01 and 0x81 name the same pipe in both. Addresses whose number is above 0x0F are answered with -109.
 *
 * <p>Time-outs are in milliseconds. <b>A time-out of 0 waits for ever.</b> A negative one is taken as an unsigned
 * number of 32 bits, which is 24 to 50 days.
 *
 * <p><b>A transfer that ends early is not an error.</b> When the device stalls, is pulled, answers with less, or the
 * transfer is cancelled, the result is the number of bytes moved until then, often 0. Only a transfer that runs out of
 * time answers -150, and bytes that it moved before are then not counted.
 *
 * <h2>HID devices</h2>
 *
 * <p>HID devices (type letter {@code h} in the information line) are driven through the operating system's HID
 * service: interrupt transfers only, in whole reports. Bulk and control transfers, cancel and reset on them answer
 * -120. Close HID devices before their list is released: the release does not close them.
 * <ul>
 * <li>From open to close the library collects the device's reports, about 64,000 bytes of them; when there is no more
 *     room the oldest is dropped, and what was not read before a close is there after the next open.</li>
 * <li>Reports are 64 bytes long, or as long as the calls with a packet size say; a device of vendor 0x6A5D starts with
 *     512, until the first call without a packet size. What comes from the device has the length that was set when it
 *     was opened: to change the length, make a call with the new one, close and open again. Read everything before:
 *     between reports of two lengths the library loses the bounds, and old ones may come round again.</li>
 * <li>A shorter report from the device is given as a whole one: what stands behind its bytes is left over from earlier
 *     reports. Some versions of the Linux kernel do not give it at all.</li>
 * <li>A read counts a time-out of 0 or less as run out. <b>While it waits it keeps a processor core busy</b>, and a
 *     cancel does not end it: read with short time-outs. Reports that a read has taken before its time ran out are lost
 *     to the next one. A read of 0 or fewer bytes takes all reports until its time is up and answers -150.</li>
 * <li>A write leaves each report to the system, which does not look at the time-out: Linux gives up after about 5
 *     seconds; macOS, by its published sources, after 1 to 5 or, with older HID drivers, never.</li>
 * <li><b>Do not open or close on a thread that draws the user interface.</b> A close waits, with a core busy, for the
 *     thread that collects the reports and for a report that is being sent, up to 20 seconds for each, and so does an
 *     open that has to end an earlier opening first.</li>
 * <li>The times of reads, opens and closes are measured by the wall clock: when it is set back, they take that much
 *     longer.</li>
 * </ul>
 *
 * <h2>Buffers</h2>
 *
 * <p>Every buffer belongs to the caller and is used only until the method returns; on another thread nobody may change
 * it meanwhile. The required length stands at each method. A shorter buffer does no harm: of a read, what fits is
 * stored; of a write, the missing bytes are sent as zeroes. A transfer of bytes without a buffer (null) answers -112 or
 * -113.
 *
 * <h2>The native library</h2>
 *
 * <p>The first use of this class loads the native library: the file that the system property
 * {@code orvex.usb.library} names by its absolute path, and then no other; or else {@code USBAccessLink} in
 * {@code java.library.path}; or else, when it does not lie there, the copy in the jar, which is unpacked into a folder
 * that belongs to the user alone (in the user's cache, the folder of the login or the temporary folder).
 *
 * <p>The library needs libusb-1.0, and on Linux hidapi. When on Linux the copy in the jar does not find one of the two,
 * the jar's copy of that is unpacked and loaded as well; with any value but {@code true} the system property
 * {@code orvex.usb.fallback} forbids it. A library that the property {@code orvex.usb.library} or
 * {@code java.library.path} has chosen gets none. libudev has to be installed.
 *
 * <p>A class loader that loads this class again gets another copy of the library, with a session, lists and open
 * devices of its own; a file that the property or the path names can be loaded by one class loader only. End the
 * session before a class loader is given up: the library goes with it. HID devices that are open then are closed.
 *
 * <p>A virtual machine that refuses native code wants {@code --enable-native-access=com.talvane.orvex.comm}, or
 * {@code ALL-UNNAMED} when the jar is on the class path.
 *
 * <h2>Debug output</h2>
 *
 * <p>While the environment variable {@code ORVEXCOMM_DEBUG} is set, to whatever value, the library traces its work to
 * the standard error stream. Do not reckon with its time stamps. In lines with {@code [ORVEXCOMM_DBG]} the seconds
 * count from the first such line and the fraction is the clock's own, so within a second the stamp may run backwards;
 * in all others milliseconds of the wall clock start again at 0 every 48.5 days.
 */
public class ORVEXCommUSBAccess {
    static {
        NativeLibrary.load();
    }

    /**
     * Makes an access object. It has no state: the session, the lists and the open devices belong to the library that
     * its class loader has loaded, so all objects of this class are equal.
     *
     * @throws UnsatisfiedLinkError at the first use of the class, when the native library cannot be loaded; the
     *         message tells what was tried
     */
    public ORVEXCommUSBAccess() {
    }

    // ------------------------------------------------------------------------------------------------- session

    /**
     * Opens the session. There is at most one for each class loader that has this class, mostly one in a process; it
     * starts libusb and a thread that listens for devices that come and go.
     *
     * <p>Threads: not while any other method runs.
     *
     * @return the session id for later calls, always 0; -115 when a session is open already (it stays as it is); or
     *         libusb's code (-1 to -99) when libusb cannot start
     */
    public native int usbInitialize();

    /**
     * Ends the session. Close all devices and release all lists first: records that are left over stay countable, but
     * opening them answers -107 and transfers on them answer -109 from then on.
     *
     * <p>Threads: beside transfers and cancels only. Takes up to about a second, until the listening thread has ended,
     * and up to 3 seconds more for each device with a transfer that does not come back.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @return 0; or -116 when this is not the id of the open session (nothing changes)
     */
    public native int usbRelease(int sessionId);

    /**
     * Tells the version of this library, whether or not a session is open. It is not the version of libusb.
     *
     * <p>Threads: any, at any time.
     *
     * @return the version times 100: 347 for version 3.47
     */
    public native int usbGetLibVersion();

    // ------------------------------------------------------------------------------------------------- lists

    /**
     * Makes a list of the devices of one vendor, or of all. When the session has a list for just this vendor id that
     * is not empty, that list is returned as it is.
     *
     * <p>The vendor id is not watched for devices that come and go: the list is renewed by
     * {@link #usbUpdateDeviceList} only when a list from {@link #usbCreateDeviceList2} watches the same id and this
     * list was made first. Prefer {@link #usbCreateDeviceList2}.
     *
     * <p>Threads: not together with other session, list, open or close calls. Each listed device is opened briefly to
     * read its strings and descriptors, which takes some milliseconds, or up to some seconds when a device does not
     * answer.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @param vendorId  the USB vendor id, 0x0000 to 0xFFFF; -1 (0xFFFFFFFF) for the devices of all vendors
     * @return the list handle, 0 or more, also when no device was found or libusb could not tell the devices; -11 when
     *         there is no memory; or -116 when this is not the id of the open session
     */
    public native int usbCreateDeviceList(int sessionId, int vendorId);

    /**
     * Makes a list of the devices of up to sixteen vendors, and watches these vendor ids for devices that come and
     * go. When the session has a list for the same ids, in whatever order, that is not empty, that list is returned as
     * it is (not renewed).
     *
     * <p>A vendor id that libusb refuses to watch is listed all the same, and no result tells: devices of it that come
     * or go do not make {@link #usbUpdateDeviceList} look again. A list none of whose ids is watched stays as it was
     * made. Nor does a list learn of changes to an id that an earlier list of the session has, be that list empty or
     * released (see "Naming a device").
     *
     * <p>Threads: not together with other session, list, open or close calls. Each listed device is opened briefly to
     * read its strings and descriptors, which takes some milliseconds, or up to some seconds when a device does not
     * answer. A device that cannot be opened is listed with the text {@code <cannot_open>VVVV:PPPP} (vendor and
     * product id) as manufacturer and product.
     *
     * @param sessionId the id from {@link #usbInitialize}
     * @param vendorIds USB vendor ids, each 0x0000 to 0xFFFF; those beyond the sixteenth are left out, -1 matches
     *                  nothing, an empty array (or null) makes a list without devices; but when the session has a
     *                  list that is not empty and whose first id is -1, as one of {@link #usbCreateDeviceList} for all
     *                  vendors, an empty array gives that list. The array is not changed
     * @return the list handle, 0 or more, also when no device was found or libusb could not tell the devices; -11 when
     *         there is no memory; or -116 when this is not the id of the open session (the array is not looked at)
     */
    public native int usbCreateDeviceList2(int sessionId, int[] vendorIds);

    /**
     * Brings a list up to date after devices have come or gone. Nothing is looked at unless the library has been told
     * by the operating system of a change that concerns this list (see "Naming a device"); so the call is cheap and
     * may be made often, and just after a plug or unplug it may be a moment too early: call it again. Without such a
     * notice, as for a vendor id that could not be watched or that an earlier list has, nothing is done and the answer
     * is 0. With one, the devices of all vendor ids of the list are looked at again.
     *
     * <p>Devices that are gone stay in their place with presence 0; devices that are back get presence 1 on their old
     * record; others are added at the end. A device counts as the same when vendor id, product id, release,
     * manufacturer, product and serial number are equal. A device that was pulled and plugged in again while open has
     * to be opened again. Two devices that are equal in all of these, as without serial numbers, are told apart only by
     * their order on the bus: when one of them was pulled, the other may get its place. That place counts as closed
     * then; if the other was open, it still is in its old place.
     *
     * <p>A device that cannot be opened at the moment of the update, or one of whose texts cannot be read then, is
     * another device to the list, though it is attached: its record gets presence 0 and another one without the text is
     * added. The next update that can read it puts that right. When libusb cannot tell the devices at all, the answer
     * is 0 and all have presence 0 until the next change.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param unused     has no effect; pass 0
     * @return 0, whether or not anything changed; -11 when there is no memory; -103 when no list has this handle; -104
     *         when there are no lists at all
     */
    public native int usbUpdateDeviceList(int listHandle, int unused);

    /**
     * Empties a list and frees its records. Close its open devices first. The handle stays known: the list counts 0
     * devices, and may be released again.
     *
     * <p>Threads: not together with other session, list, open or close calls. Takes up to 3 seconds for each device
     * with a transfer that does not come back.
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
     * Tells about one device in one line of twelve fields with {@code :=} between them:
     *
     * <pre>{@code 1:=6A5C:=1001:=0100:=Talvane:=Echo Tool:=ECHO0001:=x:=b:=0:=0:=end}</pre>
     *
     * <ol>
     * <li>presence at the latest update: 1, or 0 when the device is gone</li>
     * <li>vendor id, four upper-case hexadecimal digits</li>
     * <li>product id, likewise</li>
     * <li>release number of the device (bcdDevice), likewise</li>
     * <li>manufacturer: up to 125 characters, {@code ?} when the device has none; characters up to 0xFF arrive as they
     *     are, one above is given as a question mark</li>
     * <li>product (for an interface of a composite device: the name of the interface)</li>
     * <li>serial number (for an interface of a composite device: followed by an underscore and the number of the
     *     interface in two hexadecimal digits)</li>
     * <li>always {@code x}</li>
     * <li>type: {@code h} HID device, {@code u} class that this library does not drive, {@code b} any other</li>
     * <li>family: 0 plain device, 1 composite device, 2 interface of a composite device</li>
     * <li>interface number, decimal; 0 for a whole device</li>
     * <li>always {@code end}</li>
     * </ol>
     *
     * <p>The line is cut after 511 characters and then lacks its end mark. Texts are given as they are, also when they
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
     * Would tell about a device whose presence changed. The library keeps no list of changes, so there is never one to
     * tell: compare field 1 of {@link #usbGetDeviceInfo} before and after {@link #usbUpdateDeviceList} instead.
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
     * another configuration is set to configuration 1. For a HID device the answer is 0 even when its HID service
     * cannot be opened: writes then answer -109 and reads -150. (By its published sources macOS opens HID devices only
     * for the user at the Mac's own screen, not over ssh, and those that work like a keyboard only with the permission
     * Input Monitoring.)
     * One that was pulled while open and is back is closed first and then opened anew.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -11 when there is no memory to note that it is open; -105 when it is open already (it stays open);
     *         -107 when it cannot be opened (no permission, no memory for its transfers, gone since the last update,
     *         its session has ended, or a transfer of an earlier opening has still not come back); -108 when its
     *         interface cannot be claimed, because another program or a driver holds it; -114 when there is no such
     *         device; -130 when configuration 1 cannot be set; -131 when it is absent; -158 when its class is not one
     *         that this library drives. After any of these but -105 the device is closed
     */
    public native int usbOpenDevice(int listHandle, int index);

    /**
     * Closes an open device. Transfers of other threads that still run on it are cancelled first. Whatever the result,
     * the device counts as not open afterwards.
     *
     * <p>A transfer that has not come back after 3 seconds keeps the device: it stays claimed, also when it was a
     * release of its list that waited. This method tries again when it is called later, also when it answers -114
     * because the device counts as closed, and so do {@link #usbOpenDevice} and {@link #usbReleaseDeviceList}. A HID
     * device whose waits (see "HID devices") were in vain is left open for good rather than taken from a thread; the
     * answer is 0 all the same.
     *
     * <p>Threads: not together with other session, list, open or close calls.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -109 when there was nothing left to close, because the device was pulled and plugged in again
     *         meanwhile, or its HID service had never opened; -114 when it was not open
     */
    public native int usbCloseDevice(int listHandle, int index);

    /**
     * Resets the port of an open device, as if it had been pulled and plugged in, with the same configuration.
     *
     * <p>Threads: not together with session, list, open or close calls, nor with transfers on the device.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @return 0; -109 when the device has been plugged in anew meanwhile; -114 when it is not open; -120 for a HID
     *         device; or libusb's code: -5 when the device is not the same after the reset (close it, update the list
     *         and open it again)
     */
    public native int usbResetDevice(int listHandle, int index);

    /**
     * Not offered: a restart of a device does not exist here.
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list; it need not be open
     * @return -120; or -114 when there is no such device
     */
    public native int usbRestartDevice(int listHandle, int index);

    /**
     * Not offered: a pipe cannot be reset on its own.
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
     * thread comes back soon, with the number of bytes moved so far. Of {@link #usbWriteInterruptPipeEx} it cancels one
     * packet: that counts as sent, and the next one goes out.
     *
     * <p>Threads: any.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address with its direction bit: 0x81 cancels a read, 0x01 a write, 0x00 a control
     *                   transfer
     * @return 0; -109 when the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F; -114
     *         when it is not open; -120 for a HID device; or libusb's code: -5 when no transfer was running there
     */
    public native int usbCancelPipeTransfer(int listHandle, int index, int endpoint);

    // ------------------------------------------------------------------------------------------------- control pipe

    /**
     * Makes a control transfer; meant for requests that send data to the device. The direction is that of the setup
     * packet, so this method and {@link #usbReadControlPipe} differ only in the code for a transfer that cannot start.
     *
     * <p>The buffer starts with the setup packet, and the data of the request follow at byte 8:
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
     *         which usually give 0; -109 when the device has been plugged in anew meanwhile; -112 when the transfer
     *         could not be started; -114 when the device is not open; -120 for a HID device
     */
    public native int usbWriteControlPipe(int listHandle, int index, int ignored, int timeout, byte[] buffer);

    /**
     * Makes a control transfer; meant for requests that get data from the device. They are stored in the buffer from
     * byte 8 on, behind the setup packet. See {@link #usbWriteControlPipe} for the setup packet.
     *
     * <p>Threads: one control transfer at a time on a device.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param ignored    has no effect; pass 0
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     setup packet and room for the data: at least 8 + wLength bytes
     * @return the number of data bytes moved (without the setup packet), 0 to 65535, also after a stall or a time-out,
     *         which usually give 0; -109 when the device has been plugged in anew meanwhile; -113 when the transfer
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
     * @return the number of bytes written, 0 to {@code length}, also after a stall, a cancel or when the device was
     *         pulled; -109 when the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F;
     *         -112 when the transfer could not be started (also for a negative length); -114 when the device is not
     *         open; -120 for a HID device; -150 when the time ran out
     */
    public native int usbWriteBulkPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Reads from a bulk endpoint. The read ends when {@code length} bytes have come, or earlier with a packet that is
     * shorter than the endpoint's packet size; ask for a multiple of that size, or the device may send more than was
     * asked for, and the read ends with what came before.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set
     * @param length     the greatest number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     takes the bytes: at least {@code length}
     * @return the number of bytes read, 0 to {@code length}, also after a stall, a cancel or when the device was
     *         pulled; -109 when the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F;
     *         -113 when the transfer could not be started (also for a negative length); -114 when the device is not
     *         open; -120 for a HID device; -150 when the time ran out (bytes that had come are in the buffer, but are
     *         not counted)
     */
    public native int usbReadBulkPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Writes to a bulk endpoint, just like {@link #usbWriteBulkPipe}: the two last arguments have no effect.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared
     * @param length     the number of bytes to write, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     the bytes: at least {@code length} of them
     * @param packetSize has no effect, any value is taken
     * @param fillValue  has no effect
     * @return as {@link #usbWriteBulkPipe}
     */
    public native int usbWriteBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    /**
     * Reads from a bulk endpoint, just like {@link #usbReadBulkPipe}: the two last arguments have no effect.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set
     * @param length     the greatest number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever
     * @param buffer     takes the bytes: at least {@code length}
     * @param packetSize has no effect, any value is taken
     * @param fillValue  has no effect
     * @return as {@link #usbReadBulkPipe}
     */
    public native int usbReadBulkPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    // ------------------------------------------------------------------------------------------------- interrupt pipes

    /**
     * Writes to an interrupt endpoint. To a HID device the bytes go as whole reports of 64 bytes, the last one filled
     * up with 0x5A.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is cleared. A HID device ignores it
     * @param length     the number of bytes to write, 0 or more
     * @param timeout    in milliseconds, 0 for ever; without effect on a HID device
     * @param buffer     the bytes: at least {@code length} of them
     * @return the number of bytes written, 0 to {@code length}, also after a stall, a cancel or when the device was
     *         pulled; -109 when the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F;
     *         -112 when the transfer could not be started (also for a negative length, but to a HID device that sends
     *         nothing and answers 0) or a report could not be sent; -114 when the device is not open; -150 when the
     *         time ran out, never from a HID device
     */
    public native int usbWriteInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Reads from an interrupt endpoint. From a HID device exactly {@code length} bytes are read, out of as many
     * reports of 64 bytes as that takes; the rest of the last report is dropped.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set. A HID device ignores it
     * @param length     the number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever; for a HID device 0 or less answers -150 at once
     * @param buffer     takes the bytes: at least {@code length}
     * @return the number of bytes read, 0 to {@code length}, also after a stall, a cancel or when the device was
     *         pulled; -109 when the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F;
     *         -113 when the transfer could not be started (also for a negative length, but not from a HID device);
     *         -114 when the device is not open; -150 when the time ran out (bytes that had come are in the buffer, but
     *         are not counted)
     */
    public native int usbReadInterruptPipe(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer);

    /**
     * Writes to an interrupt endpoint in packets (to a HID device: reports) of a given size. The last one is filled up
     * to that size.
     *
     * <p>A packet that the device takes only in part counts as written, and so does one that is cancelled by
     * {@link #usbCancelPipeTransfer}. When a packet fails, those before it are not counted, although they were sent.
     * When the device is closed, its list released or the session ended meanwhile, no further packet goes out, and the
     * result is what really moved: the packets before and what the cancelled one had moved.
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
     * @param fillValue  its low 8 bits fill the last packet
     * @return the number of bytes written, without the filling: {@code length} when every packet went out; -109 when
     *         the device has been plugged in anew meanwhile, or for an endpoint number above 0x0F; -112 when a packet
     *         could not be started or sent; -114 for a packet size below 64 or above
     *         1024, and when the device is not open; -150 when the time ran out
     */
    public native int usbWriteInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    /**
     * Reads from an interrupt endpoint. Only a HID device uses the packet size, as the size of its reports; for any
     * other it is checked, and apart from that the call is the same as {@link #usbReadInterruptPipe}.
     *
     * <p>Threads: one transfer at a time on an endpoint.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param endpoint   the endpoint address; bit 0x80 is set. A HID device ignores it
     * @param length     the number of bytes to read, 0 or more
     * @param timeout    in milliseconds, 0 for ever; for a HID device 0 or less answers -150 at once
     * @param buffer     takes the bytes: at least {@code length}
     * @param packetSize in bytes, 64 to 1024
     * @param fillValue  has no effect on what is read
     * @return as {@link #usbReadInterruptPipe}; and -114 for a packet size below 64 or above 1024
     */
    public native int usbReadInterruptPipeEx(int listHandle, int index, int endpoint, int length, int timeout,
            byte[] buffer, int packetSize, int fillValue);

    // ------------------------------------------------------------------------------------------------- descriptors

    /**
     * Gives a descriptor as it was read when the device was listed; the device is not asked and need not be open.
     *
     * <table>
     * <caption>What is given, by descriptor type</caption>
     * <tr><th>type</th><th>index</th><th>given</th></tr>
     * <tr><td>1 device</td><td>has no effect</td><td>the 18 bytes of the device descriptor, <b>whatever</b>
     *     {@code bufferSize} is</td></tr>
     * <tr><td>2 configuration</td><td>has no effect</td><td>the first configuration with all its interfaces and
     *     endpoints, up to 512 bytes and not more than the active configuration has; for an interface of a composite
     *     device the part of that interface</td></tr>
     * <tr><td>3 string</td><td>1 manufacturer, 2 product, 3 serial number</td><td>the text, a byte for each
     *     character (ISO 8859-1), with a zero byte behind it (not a USB string descriptor). The result is the length of
     *     the text; when the text does not fit with its zero byte, what fits is stored, a zero byte last, and the
     *     result is {@code bufferSize}. A {@code bufferSize} below 2 then stores nothing</td></tr>
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
     * @param bufferSize      the greatest number of bytes to store, by type, as above
     * @param buffer          takes the bytes: at least 18 for type 1, 7 for type 5, {@code bufferSize} for others
     * @return the number of bytes, by type, as above; -11 when the buffer is too short and there is no memory to make up
     *         for it; -114 when there is no such device, for type 4 and any other type, and for a string index outside
     *         1 to 3; -131 when the device could not be read when it was listed, or has
     *         no such endpoint
     */
    public native int usbGetDeviceDescriptor(int listHandle, int index, int descriptorType, int descriptorIndex,
            int bufferSize, byte[] buffer);

    /**
     * Gives the endpoints of the device's interface as they were read when the device was listed; it need not be open.
     * Eight bytes are stored for each, four numbers of 16 bits with the low byte first: the endpoint address, the
     * packet size (wMaxPacketSize), the attributes (2 bulk, 3 interrupt), and the direction (1 in, 0 out).
     *
     * <p>Threads: not together with calls that change lists.
     *
     * @param listHandle the list
     * @param index      the device's position in the list
     * @param buffer     takes the bytes: at least 8 for each endpoint, 128 are always enough; null to be told the
     *                   number only
     * @return the number of endpoints, 0 to 16; -11 when the buffer is too short and there is no memory to make up for
     *         it; or -114 when there is no such device
     */
    public native int usbGetEndpointList(int listHandle, int index, byte[] buffer);
}
