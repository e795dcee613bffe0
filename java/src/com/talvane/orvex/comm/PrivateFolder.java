package com.talvane.orvex.comm;

import java.io.IOException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFileAttributes;
import java.nio.file.attribute.PosixFilePermission;
import java.nio.file.attribute.PosixFilePermissions;
import java.nio.file.attribute.UserPrincipal;
import java.util.Set;

/** Folders from which code may be run, since nobody but the user can put anything there. */
final class PrivateFolder {
    private static final FileAttribute<?> FOR_THE_USER_ALONE =
            PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------"));

    private PrivateFolder() {
    }

    /**
     * A folder in the given one, both made when they are missing.
     *
     * @throws IOException when one of the two cannot be made or is not the user's own
     */
    static Path at(Path outer, String name) throws IOException {
        Files.createDirectories(outer.getParent(), FOR_THE_USER_ALONE);
        makeAndCheck(outer);
        Path inner = outer.resolve(name);
        makeAndCheck(inner);
        return inner;
    }

    /** In a folder that everybody may write to, somebody else may have been there first. */
    private static void makeAndCheck(Path folder) throws IOException {
        try {
            Files.createDirectory(folder, FOR_THE_USER_ALONE);
        } catch (FileAlreadyExistsException e) {
            // Most often it is from the last start; what it really is, is checked in either case.
        }
        PosixFileAttributes found =
                Files.readAttributes(folder, PosixFileAttributes.class, LinkOption.NOFOLLOW_LINKS);
        Set<PosixFilePermission> allowed = found.permissions();
        if (!found.isDirectory()) {
            throw new IOException("'" + folder + "' is not a folder but a link or a file");
        }
        if (allowed.contains(PosixFilePermission.GROUP_WRITE) || allowed.contains(PosixFilePermission.OTHERS_WRITE)) {
            throw new IOException("others than its owner may write to '" + folder + "'");
        }
        if (!found.owner().equals(ownerOfNewFilesIn(folder))) {
            throw new IOException("'" + folder + "' belongs to " + found.owner() + ", another user");
        }
    }

    /** Who this process is, in the eyes of the file system: there is no other way to ask that works everywhere. */
    private static UserPrincipal ownerOfNewFilesIn(Path folder) throws IOException {
        Path probe = Files.createTempFile(folder, "owner", null);
        try {
            return Files.getOwner(probe, LinkOption.NOFOLLOW_LINKS);
        } finally {
            Files.deleteIfExists(probe);
        }
    }
}
