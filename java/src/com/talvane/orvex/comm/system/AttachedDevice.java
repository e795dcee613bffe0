package com.talvane.orvex.comm.system;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;

/**
 * A device on the machine's USB buses, as Linux shows it in sysfs. Other systems show none.
 *
 * @param folder    its folder in sysfs
 * @param vendorId  idVendor
 * @param productId idProduct
 * @param serial    as the kernel has read it, with all its characters; empty if it has none
 */
public record AttachedDevice(Path folder, int vendorId, int productId, String serial) {
    private static final String ROOT_PROPERTY = "orvex.usb.root";

    /**
     * The folder that contains {@code sys}, {@code dev} and {@code proc}. The system property {@code orvex.usb.root}
     * names another one, to examine a copy of another machine's folders.
     */
    public static Path root() {
        return Path.of(System.getProperty(ROOT_PROPERTY, "/"));
    }

    /** The devices of the machine with this root. */
    public static List<AttachedDevice> below(Path root) {
        return SystemFiles.children(root.resolve("sys/bus/usb/devices")).stream()
                .map(AttachedDevice::read)
                .flatMap(Optional::stream)
                .toList();
    }

    /** Reads a folder of sysfs; empty if it does not belong to a device, or the device is unplugged meanwhile. */
    private static Optional<AttachedDevice> read(Path folder) {
        if (!Files.exists(folder.resolve("idVendor"))) {
            return Optional.empty();
        }
        try {
            return Optional.of(new AttachedDevice(folder,
                    Integer.parseInt(SystemFiles.text(folder.resolve("idVendor")), 16),
                    Integer.parseInt(SystemFiles.text(folder.resolve("idProduct")), 16),
                    SystemFiles.text(folder.resolve("serial"))));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }

    /** Where it is plugged in, such as 1-4.2: port 2 of a hub at port 4 of bus 1. */
    public String port() {
        return folder.getFileName().toString();
    }
}
