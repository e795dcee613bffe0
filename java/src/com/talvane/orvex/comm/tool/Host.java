package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.system.AttachedDevice;
import com.talvane.orvex.comm.system.SystemFiles;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFileAttributes;
import java.nio.file.attribute.PosixFilePermission;
import java.util.List;
import java.util.Optional;
import java.util.Set;
import java.util.function.Predicate;

/**
 * The machine's own view of USB on Linux: devices in sysfs, their nodes, and the processes that have these open. Other
 * systems have none of these folders.
 *
 * @param root     the folder that contains {@code sys}, {@code dev} and {@code proc}
 * @param isUsable whether this process may read and write a node
 * @param isMac    whether the system is macOS
 * @param isRemote whether this process was started in an ssh session
 */
record Host(Path root, Predicate<Path> isUsable, boolean isMac, boolean isRemote) {
    private static final Set<PosixFilePermission> GROUP_ACCESS =
            Set.of(PosixFilePermission.GROUP_READ, PosixFilePermission.GROUP_WRITE);

    static Host here() {
        return new Host(AttachedDevice.root(),
                node -> Files.isReadable(node) && Files.isWritable(node),
                System.getProperty("os.name").startsWith("Mac"), System.getenv("SSH_CONNECTION") != null);
    }

    /** Whether the system has a sysfs, with or without a USB bus. */
    boolean hasSysfs() {
        return Files.isDirectory(root.resolve("sys/bus"));
    }

    boolean hasUsb() {
        return Files.isDirectory(root.resolve("sys/bus/usb"));
    }

    boolean exists(Path node) {
        return Files.exists(node);
    }

    /** The devices on the bus. */
    List<KernelDevice> devices() {
        return AttachedDevice.below(root).stream()
                .map(device -> KernelDevice.read(device, root.resolve("dev")))
                .flatMap(Optional::stream)
                .toList();
    }

    /** The processes that have a node open, as far as this process may see them. */
    List<String> holders(Path node) {
        return SystemFiles.children(root.resolve("proc")).stream()
                .filter(process -> process.getFileName().toString().matches("\\d+"))
                .filter(process -> SystemFiles.children(process.resolve("fd")).stream().anyMatch(fd -> leadsTo(fd, node)))
                .map(process -> "process " + process.getFileName() + " (" + text(process.resolve("comm")) + ")")
                .toList();
    }

    private static boolean leadsTo(Path link, Path node) {
        try {
            return Files.readSymbolicLink(link).equals(node);
        } catch (IOException | UnsupportedOperationException e) {
            return false; // Closed meanwhile.
        }
    }

    /** The group whose members may use a node, if there is one other than root. */
    Optional<String> groupWithAccess(Path node) {
        try {
            PosixFileAttributes attributes = Files.readAttributes(node, PosixFileAttributes.class);
            return Optional.of(attributes.group().getName())
                    .filter(group -> !group.equals("root") && attributes.permissions().containsAll(GROUP_ACCESS));
        } catch (IOException | UnsupportedOperationException e) {
            return Optional.empty();
        }
    }

    /** The text of a file with one line, without control characters; empty if it cannot be read. */
    static String text(Path file) {
        return Text.printable(SystemFiles.text(file));
    }
}
