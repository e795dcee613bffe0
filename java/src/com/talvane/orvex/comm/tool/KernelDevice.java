package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.system.AttachedDevice;
import com.talvane.orvex.comm.system.SystemFiles;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;

/**
 * A USB device in sysfs.
 *
 * @param folder       its folder in sysfs
 * @param vendorId     idVendor
 * @param productId    idProduct
 * @param serial       empty if it has none
 * @param isAuthorized whether the kernel may use it
 * @param node         the device node, through which programs access it
 * @param interfaces   the interfaces of its configuration
 */
record KernelDevice(
        Path folder,
        int vendorId,
        int productId,
        String serial,
        boolean isAuthorized,
        Path node,
        List<Interface> interfaces) {

    /**
     * An interface.
     *
     * @param name     the name of its folder in sysfs, which is also its name for drivers
     * @param number   bInterfaceNumber
     * @param isHid    whether its class is HID
     * @param driver   the driver that is bound to it, empty if none is; {@code usbfs} means a program
     * @param hidNodes the nodes through which programs access its reports
     */
    record Interface(String name, int number, boolean isHid, String driver, List<Path> hidNodes) {
        private static Interface read(Path folder, Path dev) {
            List<Path> hidNodes = SystemFiles.children(folder).stream()
                    .flatMap(child -> SystemFiles.children(child.resolve("hidraw")).stream())
                    .map(hidraw -> dev.resolve(hidraw.getFileName().toString()))
                    .toList();
            return new Interface(folder.getFileName().toString(),
                    Integer.parseInt(Host.text(folder.resolve("bInterfaceNumber")), 16),
                    Host.text(folder.resolve("bInterfaceClass")).equals("03"), driver(folder), hidNodes);
        }

        private static String driver(Path folder) {
            try {
                return Files.readSymbolicLink(folder.resolve("driver")).getFileName().toString();
            } catch (IOException e) {
                return "";
            }
        }
    }

    /** Reads the rest of what sysfs tells of a device; empty if it is unplugged meanwhile. */
    static Optional<KernelDevice> read(AttachedDevice device, Path dev) {
        Path folder = device.folder();
        try {
            Path node = dev.resolve(String.format("bus/usb/%03d/%03d",
                    Integer.parseInt(Host.text(folder.resolve("busnum"))),
                    Integer.parseInt(Host.text(folder.resolve("devnum")))));
            List<Interface> interfaces = SystemFiles.children(folder).stream()
                    .filter(child -> Files.exists(child.resolve("bInterfaceNumber")))
                    .map(child -> Interface.read(child, dev))
                    .toList();
            return Optional.of(new KernelDevice(folder, device.vendorId(), device.productId(),
                    Text.printable(device.serial()), !Host.text(folder.resolve("authorized")).equals("0"), node,
                    interfaces));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }

    /** For messages. */
    String label() {
        return String.format("%s (%04X:%04X)", serial.isEmpty() ? "device " + folder.getFileName() : serial, vendorId,
                productId);
    }
}
