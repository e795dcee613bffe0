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

/** Folders from which it is safe to load code, because only the user can put files there. */
final class PrivateFolder {
    private static final FileAttribute<?> FOR_THE_USER_ALONE =
            PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------"));

    private static final int WRITE_FOR_OTHERS = 022;
    private static final int STICKY = 01000;
    private static final int ROOT = 0;
    /** In a container without the machine's root, files that belong to that root seem to belong to this user. */
    private static final int NOT_OF_THIS_CONTAINER = 65534;

    private PrivateFolder() {
    }

    /**
     * Returns a folder in the given one; creates both if they are missing.
     *
     * @return the folder, by a path without links
     * @throws IOException when one of the two cannot be created or does not belong to the user, or when others could
     *         replace it by another folder
     */
    static Path at(Path outer, String name) throws IOException {
        Files.createDirectories(outer.getParent(), FOR_THE_USER_ALONE);
        // A link may change later: resolve it once, and check and use the result.
        Path real = outer.getParent().toRealPath().resolve(outer.getFileName());
        UserPrincipal user = makeAndCheck(real);
        for (Path above = real.getParent(); above != null; above = above.getParent()) {
            checkAbove(above, user);
        }
        Path inner = real.resolve(name);
        makeAndCheck(inner);
        return inner;
    }

    /** The owner of a folder, and everybody who may write to it unless it is sticky, can replace the folders in it. */
    private static void checkAbove(Path folder, UserPrincipal user) throws IOException {
        Map<String, Object> found = Files.readAttributes(folder, "unix:mode,uid,owner", LinkOption.NOFOLLOW_LINKS);
        int mode = (int) found.get("mode");
        int owner = (int) found.get("uid");
        if ((mode & WRITE_FOR_OTHERS) != 0 && (mode & STICKY) == 0) {
            throw new IOException("users other than its owner may write to '" + folder + "', which is above it");
        }
        if (owner != ROOT && owner != NOT_OF_THIS_CONTAINER && !found.get("owner").equals(user)) {
            throw new IOException("'" + folder + "', which is above it, belongs to " + found.get("owner"));
        }
    }

    /**
     * Creates a folder, or checks one that exists: where everybody may write, somebody else may have created it.
     * Returns its owner, the user.
     */
    private static UserPrincipal makeAndCheck(Path folder) throws IOException {
        try {
            Files.createDirectory(folder, FOR_THE_USER_ALONE);
        } catch (FileAlreadyExistsException e) {
            // Usually an earlier start created it. The checks below run in either case.
        }
        PosixFileAttributes found =
                Files.readAttributes(folder, PosixFileAttributes.class, LinkOption.NOFOLLOW_LINKS);
        Set<PosixFilePermission> allowed = found.permissions();
        if (!found.isDirectory()) {
            throw new IOException("'" + folder + "' is not a folder but a link or a file");
        }
        if (allowed.contains(PosixFilePermission.GROUP_WRITE) || allowed.contains(PosixFilePermission.OTHERS_WRITE)) {
            throw new IOException("users other than its owner may write to '" + folder + "'");
        }
        if (!found.owner().equals(ownerOfNewFilesIn(folder))) {
            throw new IOException("'" + folder + "' belongs to " + found.owner() + ", another user");
        }
        return found.owner();
    }

    /** The user as whom this process creates files. No other way to find this out works on every file system. */
    private static UserPrincipal ownerOfNewFilesIn(Path folder) throws IOException {
        Path probe = Files.createTempFile(folder, "owner", null);
        try {
            return Files.getOwner(probe, LinkOption.NOFOLLOW_LINKS);
        } finally {
            Files.deleteIfExists(probe);
        }
    }
}
