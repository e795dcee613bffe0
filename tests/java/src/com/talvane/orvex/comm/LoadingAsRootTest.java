package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Tests that need root: other users, and folders on file systems with restrictions. */
@Tag("loading")
@Tag("linux")
class LoadingAsRootTest extends LoadingFixture {
    private static final String NOBODY = "nobody";
    private static final String NOBODY_ID = "65534";

    @BeforeEach
    void needRoot() throws IOException {
        assumeTrue("root".equals(System.getProperty("user.name")), "needs root, for mounts and for a second user");
        allow(folder, "rwxr-xr-x");
        Files.setAttribute(temporary, "unix:mode", 01777);
    }

    private static void give(Path path, String user) throws IOException {
        Files.setOwner(path, path.getFileSystem().getUserPrincipalLookupService().lookupPrincipalByName(user));
    }

    /** A child process with a separate file system mounted over the folders. */
    private ChildVm childWithMount(String options, Path... folders) {
        String mounts = "";
        for (Path each : folders) {
            mounts += "mount -t tmpfs -o " + options + " none '" + each + "' && ";
        }
        return child().under("unshare", "-m", "sh", "-c", mounts + "exec \"$@\"", "sh");
    }

    @Test
    @Tag("unemulated")
    void aHomeFromWhichNothingMayBeRunIsLeftForTheNextPlace() throws Exception {
        assertLoaded(childWithMount("noexec", home).run("version"));
        unpackedIn(lastResort);
    }

    @Test
    @Tag("unemulated")
    void whenNothingMayBeRunFromAnyPlaceEachIsTold() throws Exception {
        assertTells(childWithMount("noexec", home, temporary).run("version"),
                "unpacked into '" + cache, "unpacked into '" + lastResort, "failed to map", "noexec");
    }

    @Test
    void aReadOnlyHomeIsLeftForTheNextPlace() throws Exception {
        assertLoaded(childWithMount("ro", home).run("version"));
        unpackedIn(lastResort);
    }

    @Test
    @Tag("unemulated")
    void theFolderOfTheLoginIsTriedBetweenCacheAndTemporaryFolder() throws Exception {
        Path chosen = Files.createDirectory(folder.resolve("chosen"));
        Path login = Files.createDirectory(folder.resolve("login"));
        assertLoaded(childWithMount("noexec", chosen).withEnvironment("XDG_CACHE_HOME", chosen.toString())
                .withEnvironment("XDG_RUNTIME_DIR", login.toString()).run("version"));
        assertEquals(List.of(unpackedIn(login.resolve(FOLDER))), files(folder));
    }

    @Test
    void aFolderOfAnotherUserIsNotTrusted() throws Exception {
        Files.createDirectories(cache);
        give(cache, NOBODY);
        assertLoaded(child().run("version"));
        unpackedIn(lastResort);
        assertEquals(List.of(), files(cache));
    }

    @Test
    void aFolderBelowThatOfAnotherUserIsNotTrusted() throws Exception {
        give(Files.createDirectories(cache.getParent()), "daemon");
        assertLoaded(child().run("version"));
        unpackedIn(lastResort);
        assertEquals(List.of(), files(cache));
    }

    /** In a container the files of users outside it belong to nobody. */
    @Test
    void aFolderBelowOneFromOutsideTheContainerIsTrusted() throws Exception {
        give(Files.createDirectories(cache.getParent()), NOBODY);
        assertLoaded(child().run("version"));
        unpackedIn(cache);
    }

    @Test
    @Tag("shipped")
    void twoUsersShareATemporaryFolderAndNothingInIt() throws Exception {
        // The other user may not be able to reach the folder of the build.
        Path jar = Files.copy(ChildVm.productJar(), folder.resolve("orvex-usb-access.jar"));
        Path picocli = Files.createDirectory(folder.resolve("lib")).resolve("info.picocli.jar");
        Files.copy(ChildVm.productJar().resolveSibling("lib/info.picocli.jar"), picocli);
        Files.delete(home);
        Files.createFile(home);

        assertLoaded(child().runJar(jar, "--version"));
        assertLoaded(asNobody().runJar(jar, "--version"));
        Path theirs = unpackedIn(temporary.resolve(FOLDER + "-" + NOBODY));
        assertEquals(NOBODY, Files.getOwner(theirs).getName());
        assertEquals("root", Files.getOwner(unpackedIn(lastResort)).getName());

        assertTells(asNobody().with("-Duser.name=root").runJar(jar, "--version"), "AccessDenied",
                lastResort.toString());
    }

    private ChildVm asNobody() {
        return child().under("setpriv", "--reuid=" + NOBODY_ID, "--clear-groups");
    }
}
