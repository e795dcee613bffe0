package com.talvane.orvex.comm.access;

/**
 * An endpoint of a device, as it was read when the device was listed.
 *
 * @param address    its USB address; bit 0x80 is set when the device sends
 * @param packetSize wMaxPacketSize
 * @param attributes bmAttributes; the low two bits are the kind: 2 bulk, 3 interrupt
 * @param isIn       whether the device sends
 */
public record UsbEndpoint(int address, int packetSize, int attributes, boolean isIn) {
}
