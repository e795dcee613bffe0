/**
 * Access to USB tools through a native library, and the command-line tool {@code orvex-usb}, which alone needs picocli.
 * With the module jdk.jfr a flight recorder can get what the package {@code access} does; all works without it.
 */
module com.talvane.orvex.comm {
    requires static info.picocli;
    requires static jdk.jfr;

    exports com.talvane.orvex.comm;
    exports com.talvane.orvex.comm.access;

    opens com.talvane.orvex.comm.tool to info.picocli;
}
