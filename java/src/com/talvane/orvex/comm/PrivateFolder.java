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
import java.util.Map;
import java.util.Set;

/** Folders from which code may be run, since nobody but the user can put anything there. */
final class PrivateFolder {
    private static final FileAttribute<?> FOR_THE_USER_ALONE =
            PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------"));

    private static final int WRITE_FOR_OTHERS = 022;
    private static final int STICKY = 01000;
    private static final int ROOT = 0;
    /** In a container without the machine's root, what is root's out there looks like this one's. */
    private static final int NOT_OF_THIS_CONTAINER = 65534;

    private PrivateFolder() {
    }

    /**
     * A folder in the given one, both made when they are missing.
     *
     * @return the folder, by a path without links
     * @throws IOException when one of the two cannot be made or is not the user's own, or when others could put another
     *         folder in its place
     */
    static Path at(Path outer, String name) throws IOException {
        Files.createDirectories(outer.getParent(), FOR_THE_USER_ALONE);
        // A link may lead elsewhere later: what is looked at is where it leads now, and that is used.
        Path real = outer.getParent().toRealPath().resolve(outer.getFileName());
        UserPrincipal user = makeAndCheck(real);
        for (Path above = real.getParent(); above != null; above = above.getParent()) {
            checkAbove(above, user);
        }
        Path inner = real.resolve(name);
        makeAndCheck(inner);
        return inner;
    }

    /** Who owns a folder, or may write to it while it is not sticky, can put another one in the place of one in it. */
    private static void checkAbove(Path folder, UserPrincipal user) throws IOException {
        Map<String, Object> found = Files.readAttributes(folder, "unix:mode,uid,owner", LinkOption.NOFOLLOW_LINKS);
        int mode = (int) found.get("mode");
        int owner = (int) found.get("uid");
        if ((mode & WRITE_FOR_OTHERS) != 0 && (mode & STICKY) == 0) {
            throw new IOException("others than its owner may write to '" + folder + "', which is above it");
        }
        if (owner != ROOT && owner != NOT_OF_THIS_CONTAINER && !found.get("owner").equals(user)) {
            throw new IOException("'" + folder + "', which is above it, belongs to " + found.get("owner"));
        }
    }

    /** In a folder that everybody may write to, somebody else may have been there first. Gives the user. */
    private static UserPrincipal makeAndCheck(Path folder) throws IOException {
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
        return found.owner();
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
