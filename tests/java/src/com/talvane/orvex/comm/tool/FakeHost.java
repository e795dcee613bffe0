package com.talvane.orvex.comm.tool;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFileAttributeView;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.HashSet;
import java.util.Set;

/** The folders in which Linux shows USB, made by a test. */
public final class FakeHost {
    private final Path root;
    private final Set<Path> forbidden = new HashSet<>();
    private boolean isMac;
    private boolean isRemote;

    /** A machine without a USB bus. */
    public FakeHost(Path root) throws IOException {
        this.root = root;
        Files.createDirectories(root.resolve("sys/bus"));
    }

    /** A device at a place of the first bus, and its node. */
    public Path device(int number, int product, String serial) throws IOException {
        Path folder = Files.createDirectories(root.resolve("sys/bus/usb/devices/1-" + number));
        Files.writeString(folder.resolve("idVendor"), "6a5c\n");
        Files.writeString(folder.resolve("idProduct"), String.format("%04x\n", product));
        Files.writeString(folder.resolve("busnum"), "1\n");
        Files.writeString(folder.resolve("devnum"), number + "\n");
        Files.writeString(folder.resolve("authorized"), "1\n");
        if (!serial.isEmpty()) {
            Files.writeString(folder.resolve("serial"), serial + "\n");
        }
        Files.createDirectories(node(number).getParent());
        Files.writeString(node(number), "");
        return folder;
    }

    Path node(int number) {
        return root.resolve(String.format("dev/bus/usb/001/%03d", number));
    }

    /** An interface that this driver has, or none. */
    Path addInterface(Path device, int number, String usbClass, String driver) throws IOException {
        Path folder = Files.createDirectory(device.resolve(device.getFileName() + ":1." + number));
        Files.writeString(folder.resolve("bInterfaceNumber"), String.format("%02x\n", number));
        Files.writeString(folder.resolve("bInterfaceClass"), usbClass + "\n");
        if (!driver.isEmpty()) {
            Files.createSymbolicLink(folder.resolve("driver"), Path.of("../../../../bus/usb/drivers", driver));
        }
        return folder;
    }

    /** The node of a HID interface. */
    Path addHidNode(Path usbInterface, String name) throws IOException {
        Files.createDirectories(usbInterface.resolve("0003:6A5C:1020.0001/hidraw").resolve(name));
        return Files.writeString(root.resolve("dev").resolve(name), "");
    }

    /** A process that has a node open. */
    void process(String id, String name, Path node) throws IOException {
        Path folder = root.resolve("proc/" + id);
        Files.createDirectories(folder.resolve("fd"));
        Files.writeString(folder.resolve("comm"), name + "\n");
        Files.createSymbolicLink(folder.resolve("fd/0"), Path.of("/dev/null"));
        Files.createSymbolicLink(folder.resolve("fd/7"), node);
    }

    /** Removes the permission for a node; its mode would have no effect on root. */
    void forbid(Path node) throws IOException {
        forbidden.add(node);
        Files.setPosixFilePermissions(node, PosixFilePermissions.fromString("rw-------"));
    }

    /** Lets the members of a group have a node; root's own would not count. */
    String giveToGroup(Path node) throws IOException {
        Files.setPosixFilePermissions(node, PosixFilePermissions.fromString("rw-rw----"));
        PosixFileAttributeView view = Files.getFileAttributeView(node, PosixFileAttributeView.class);
        if (view.readAttributes().group().getName().equals("root")) {
            view.setGroup(node.getFileSystem().getUserPrincipalLookupService().lookupPrincipalByGroupName("daemon"));
        }
        return view.readAttributes().group().getName();
    }

    /** A Mac, which has none of these folders. */
    void becomeMac() throws IOException {
        Files.delete(root.resolve("sys/bus"));
        isMac = true;
    }

    /** From now on this process belongs to a login over ssh. */
    void logInOverSsh() {
        isRemote = true;
    }

    Host host() {
        return new Host(root, node -> Files.exists(node) && !forbidden.contains(node), isMac, isRemote);
    }
}
