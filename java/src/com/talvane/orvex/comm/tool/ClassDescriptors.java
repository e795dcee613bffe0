package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.Descriptors.Field;
import com.talvane.orvex.comm.tool.Descriptors.Layout;
import java.util.Map;
import java.util.Optional;

/**
 * The functional descriptors of well-known classes. The meaning of their types depends on the class of the interface.
 */
final class ClassDescriptors {
    private static final int FUNCTIONAL = 0x21;
    private static final int CLASS_INTERFACE = 0x24;
    private static final int CLASS_ENDPOINT = 0x25;

    private static final int COMMUNICATIONS = 0x02;
    private static final int HID = 0x03;
    private static final int CDC_DATA = 0x0A;
    private static final int SMART_CARD = 0x0B;
    private static final int APPLICATION = 0xFE;
    private static final int FIRMWARE_UPGRADE = 1;

    private static final Layout OF_HID = new Layout("HID",
            Field.word("bcdHID", Descriptors::release),
            Field.octet("bCountryCode"),
            Field.octet("bNumDescriptors"),
            Field.octet("bDescriptorType", ClassDescriptors::octet),
            Field.word("wDescriptorLength", Integer::toString));
    private static final Layout OF_DFU = new Layout("DFU functional",
            Field.octet("bmAttributes", ClassDescriptors::octet),
            Field.word("wDetachTimeOut", milliseconds -> milliseconds + " ms"),
            Field.word("wTransferSize", Integer::toString),
            Field.word("bcdDFUVersion", Descriptors::release));
    private static final Layout OF_CCID = new Layout("CCID",
            Field.word("bcdCCID", Descriptors::release),
            Field.octet("bMaxSlotIndex"),
            Field.octet("bVoltageSupport", ClassDescriptors::octet));

    private static final Field SUBTYPE = Field.octet("bDescriptorSubtype", ClassDescriptors::octet);
    private static final Map<Integer, Layout> OF_CDC = Map.of(
            0x00, new Layout("CDC header", SUBTYPE, Field.word("bcdCDC", Descriptors::release)),
            0x01, new Layout("CDC call management", SUBTYPE, Field.octet("bmCapabilities", ClassDescriptors::octet),
                    Field.octet("bDataInterface")),
            0x02, new Layout("CDC abstract control management", SUBTYPE,
                    Field.octet("bmCapabilities", ClassDescriptors::octet)),
            0x06, new Layout("CDC union", SUBTYPE, Field.octet("bControlInterface"),
                    Field.octet("bSubordinateInterface0")),
            0x07, new Layout("CDC country selection", SUBTYPE),
            0x0F, new Layout("CDC Ethernet", SUBTYPE));
    private static final Layout OTHER_CDC = new Layout("CDC", SUBTYPE);

    private ClassDescriptors() {
    }

    /** The layout of a descriptor that follows an interface of this class; empty if it is unknown. */
    static Optional<Layout> layout(byte[] bytes, int interfaceClass, int interfaceSubClass) {
        int type = bytes.length > 1 ? bytes[1] & 0xFF : 0;
        if (type == FUNCTIONAL) {
            return switch (interfaceClass) {
                case HID -> Optional.of(OF_HID);
                case SMART_CARD -> Optional.of(OF_CCID);
                case APPLICATION -> interfaceSubClass == FIRMWARE_UPGRADE ? Optional.of(OF_DFU) : Optional.empty();
                default -> Optional.empty();
            };
        }
        boolean isCdc = interfaceClass == COMMUNICATIONS || interfaceClass == CDC_DATA;
        if (isCdc && (type == CLASS_INTERFACE || type == CLASS_ENDPOINT)) {
            int subtype = bytes.length > 2 ? bytes[2] & 0xFF : -1;
            return Optional.of(OF_CDC.getOrDefault(subtype, OTHER_CDC));
        }
        return Optional.empty();
    }

    private static String octet(int value) {
        return String.format("0x%02X", value);
    }
}
