package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The copy of the native library in the jar: where it is unpacked, and how it is shared. */
@Tag("loading")
class BundledLibraryTest extends LoadingFixture {
    private static final String OF_THE_USER_ALONE = "rwx------";

    private static Object identity(Path file) throws Exception {
        return Files.getAttribute(file, "unix:ino");
    }

    @Test
    void theCopyIsUnpackedOnceIntoFoldersOfTheUserAlone() throws Exception {
        assertLoaded(child().run("version"));
        Path file = unpackedIn(cache);
        Object before = identity(file);
        for (Path each : List.of(cache, file.getParent())) {
            assertEquals(OF_THE_USER_ALONE, PosixFilePermissions.toString(Files.getPosixFilePermissions(each)));
        }
        assertTrue(file.getParent().getFileName().toString().matches("3\\.47-[0-9a-f]{16}"), file::toString);

        assertLoaded(child().run("version"));
        assertEquals(before, identity(unpackedIn(cache)));
    }

    @Test
    void aFileThatIsNotTheCopyIsReplacedAndNotWrittenTo() throws Exception {
        assertLoaded(child().run("version"));
        Path file = unpackedIn(cache);
        byte[] whole = Files.readAllBytes(file);
        byte[] changed = whole.clone();
        changed[whole.length / 2] ^= 1;
        Files.write(file, changed);
        Object before = identity(Files.createLink(folder.resolve("mapped elsewhere"), file));

        assertLoaded(child().run("version"));
        assertArrayEquals(whole, Files.readAllBytes(unpackedIn(cache)));
        assertNotEquals(before, identity(file));
        assertArrayEquals(changed, Files.readAllBytes(folder.resolve("mapped elsewhere")));
    }

    @ParameterizedTest
    @ValueSource(strings = {"link", "file", "rwxrwx---", "rwx---rwx"})
    void aCacheThatCannotBeTrustedIsLeftForTheNextPlace(String what) throws Exception {
        Files.createDirectories(cache.getParent());
        switch (what) {
            case "link" -> Files.createSymbolicLink(cache, Files.createDirectory(folder.resolve("elsewhere")));
            case "file" -> Files.createFile(cache);
            default -> allow(Files.createDirectory(cache), what);
        }
        assertLoaded(child().run("version"));
        unpackedIn(lastResort);
        assertEquals(List.of(), files(cache).stream().filter(path -> !path.equals(cache)).toList());
    }

    /** A user who may write to a folder can replace the files in it. */
    @ParameterizedTest
    @ValueSource(strings = {"rwxrwxr-x", "rwxr-xrwx"})
    void aCacheBelowAFolderOfOthersIsLeftForTheNextPlace(String permissions) throws Exception {
        allow(home, permissions);
        assertLoaded(child().run("version"));
        unpackedIn(lastResort);
        assertEquals(List.of(), files(cache));
    }

    @Test
    @Tag("linux")
    void aFolderOfOthersWhereNothingCanBeTakenAwayWillDo() throws Exception {
        Files.setAttribute(home, "unix:mode", 01777);
        assertLoaded(child().run("version"));
        unpackedIn(cache);
    }

    @Test
    void aLinkOnTheWayIsFollowedOnce() throws Exception {
        Path real = Files.createDirectory(folder.resolve("real"));
        Files.createSymbolicLink(cache.getParent(), real);
        assertLoaded(child().run("version"));
        unpackedIn(real.resolve(FOLDER));
        allow(real, "rwxrwxrwx");
        assertLoaded(child().run("version"));
        unpackedIn(lastResort);
    }

    @Test
    void processesThatUnpackAtTheSameTimeSeeWholeFilesAndLeaveOne() throws Exception {
        assertLoaded(child().run("version"));
        Path file = unpackedIn(cache);
        long whole = Files.size(file);
        Files.delete(file);

        ExecutorService pool = Executors.newFixedThreadPool(3);
        try {
            List<Future<ChildVm.Outcome>> children =
                    Stream.generate(() -> pool.submit(() -> child().run("version"))).limit(3).toList();
            while (!children.stream().allMatch(Future::isDone)) {
                assertTrue(!Files.exists(file) || Files.size(file) == whole, "a part of the file can be seen");
                TimeUnit.MICROSECONDS.sleep(100);
            }
            for (Future<ChildVm.Outcome> child : children) {
                assertLoaded(child.get());
            }
        } finally {
            pool.shutdownNow();
        }
        assertEquals(file, unpackedIn(cache));
    }

    @Test
    void eachClassLoaderGetsALibraryWithASessionOfItsOwn() throws Exception {
        ChildVm.Outcome child = child().run("otherLoaders");
        assertLoaded(child);
        assertEquals(List.of("initialize: 0", "initialize: 0", "release: 0", "initialize: 0", "release: 0",
                "release: 0"), child.out().lines().toList());
        List<String> names = files(cache).stream().map(file -> file.getFileName().toString().split("\\.")[0]).toList();
        assertEquals(List.of(LIBRARY + "-2", LIBRARY + "-3", LIBRARY), names);
    }

    @Test
    void theJarLoadsByItself() throws Exception {
        ChildVm.Outcome tool = child().withoutNativeAccess().runJar(ChildVm.productJar(), "--version");
        assertEquals("orvex-usb, library version 3.47\n", tool.out(), tool.err());
    }

    @Test
    void aLibraryThatSomebodyPutBesideTheJarIsNotTaken() throws Exception {
        Path jar = Files.copy(ChildVm.productJar(), folder.resolve("tool.jar"));
        Files.copy(ChildVm.productJar().resolveSibling("lib/info.picocli.jar"), folder.resolve("picocli.jar"));
        assertTells(child().runJar(jar, "--version"), "NoClassDefFoundError: picocli/");
        Files.createDirectory(folder.resolve("lib"));
        Files.move(folder.resolve("picocli.jar"), folder.resolve("lib/info.picocli.jar"));
        assertLoaded(child().runJar(jar, "--version"));
    }

    @Test
    @Tag("shipped")
    void theJarIsAModuleThatLoadsByItself() throws Exception {
        ChildVm.Outcome tool = child().runModule("--version");
        assertEquals("orvex-usb, library version 3.47\n", tool.out(), tool.err());
    }
}
