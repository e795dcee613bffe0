/**
 * Access to USB tools through a native library, and the command-line tool {@code orvex-usb}, which alone needs picocli.
 */
module com.talvane.orvex.comm {
    requires static info.picocli;

    exports com.talvane.orvex.comm;
    exports com.talvane.orvex.comm.access;

    opens com.talvane.orvex.comm.tool to info.picocli;
}
