package com.talvane.orvex.comm;

import java.util.LinkedHashMap;
import java.util.Map;

/** All methods but {@code usbInitialize}, one after the other on one device. */
final class EveryMethod {
    private static final int SESSION = 0;
    private static final int MILLISECONDS = 100;

    private final Map<String, String> answers = new LinkedHashMap<>();

    private EveryMethod() {
    }

    /** The result of each method; at the end the device is closed and its list is released. */
    static Map<String, String> answers(ORVEXCommUSBAccess usb, int list, int index) {
        EveryMethod methods = new EveryMethod();
        methods.ofSession(usb);
        methods.ofQuestions(usb, list, index);
        methods.ofDevice(usb, list, index);
        methods.ofTransfers(usb, list, index);
        methods.say("usbCloseDevice", usb.usbCloseDevice(list, index));
        methods.say("usbReleaseDeviceList", usb.usbReleaseDeviceList(list));
        return methods.answers;
    }

    private void ofSession(ORVEXCommUSBAccess usb) {
        say("usbGetLibVersion", usb.usbGetLibVersion());
        say("usbRelease", usb.usbRelease(SESSION));
        say("usbCreateDeviceList", usb.usbCreateDeviceList(SESSION, UsbTest.VENDOR));
        say("usbCreateDeviceList2", usb.usbCreateDeviceList2(SESSION, new int[] {UsbTest.VENDOR}));
    }

    private void ofQuestions(ORVEXCommUSBAccess usb, int list, int index) {
        say("usbUpdateDeviceList", usb.usbUpdateDeviceList(list, 0));
        say("usbGetDeviceListCount", usb.usbGetDeviceListCount(list));
        say("usbGetDeviceInfo", usb.usbGetDeviceInfo(list, index));
        say("usbGetChangeInfo", usb.usbGetChangeInfo(list, index));
        say("usbGetDeviceDescriptor", usb.usbGetDeviceDescriptor(list, index, 1, 0, 18, new byte[18]));
        say("usbGetEndpointList", usb.usbGetEndpointList(list, index, new byte[128]));
    }

    private void ofDevice(ORVEXCommUSBAccess usb, int list, int index) {
        say("usbOpenDevice", usb.usbOpenDevice(list, index));
        say("usbResetDevice", usb.usbResetDevice(list, index));
        say("usbRestartDevice", usb.usbRestartDevice(list, index));
        say("usbResetPipe", usb.usbResetPipe(list, index, 0x81));
        say("usbCancelPipeTransfer", usb.usbCancelPipeTransfer(list, index, 0x81));
    }

    private void ofTransfers(ORVEXCommUSBAccess usb, int list, int index) {
        byte[] b = ControlTransferTest.setup(0xC0, 2, 0x1234, 0x56, 3);
        int size = b.length;
        say("usbWriteControlPipe", usb.usbWriteControlPipe(list, index, 0, MILLISECONDS, b));
        say("usbReadControlPipe", usb.usbReadControlPipe(list, index, 0, MILLISECONDS, b));
        say("usbWriteBulkPipe", usb.usbWriteBulkPipe(list, index, 0x01, size, MILLISECONDS, b));
        say("usbReadBulkPipe", usb.usbReadBulkPipe(list, index, 0x81, size, MILLISECONDS, b));
        say("usbWriteInterruptPipe", usb.usbWriteInterruptPipe(list, index, 0x02, size, MILLISECONDS, b));
        say("usbReadInterruptPipe", usb.usbReadInterruptPipe(list, index, 0x82, size, MILLISECONDS, b));
        say("usbWriteInterruptPipeEx", usb.usbWriteInterruptPipeEx(list, index, 0x02, size, MILLISECONDS, b, 64, 0));
        say("usbReadInterruptPipeEx", usb.usbReadInterruptPipeEx(list, index, 0x82, size, MILLISECONDS, b, 64, 0));
        say("usbWriteBulkPipeEx", usb.usbWriteBulkPipeEx(list, index, 0x01, size, MILLISECONDS, b, 64, 0));
        say("usbReadBulkPipeEx", usb.usbReadBulkPipeEx(list, index, 0x81, size, MILLISECONDS, b, 64, 0));
    }

    private void say(String method, Object answer) {
        answers.put(method, answer.toString());
    }
}
