package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The order of the places from which the native library is loaded, and the message if it is not found. */
@Tag("loading")
class LibraryLoadingTest extends LoadingFixture {
    private static Path builtLibrary() {
        return Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY));
    }

    @Test
    void aFileThatThePropertyNamesIsLoadedAndNothingIsUnpacked() throws Exception {
        assertLoaded(child().with("-Dorvex.usb.library=" + builtLibrary()).run("version"));
        assertEquals(List.of(), files(folder));
    }

    @Test
    void aMissingFileIsNamedWithThePropertyThatAskedForItAndNoOtherPlaceIsTried() throws Exception {
        assertTells(
                child().with("-Dorvex.usb.library=/nowhere/lib.so").run("version"),
                "java.lang.UnsatisfiedLinkError", "Tried the file '/nowhere/lib.so'", "orvex.usb.library",
                "-Djava.library.path=");
        assertEquals(List.of(), files(folder));
    }

    @Test
    void aRelativePathIsRefused() throws Exception {
        assertTells(child().with("-Dorvex.usb.library=lib.so").run("version"), "absolute path");
    }

    @Test
    void theSearchPathGoesBeforeTheCopyInTheJar() throws Exception {
        assertLoaded(child().without("java.library.path").with("-Djava.library.path=" + builtLibrary().getParent())
                .run("version"));
        assertEquals(List.of(), files(folder));
    }

    @Test
    void aLibraryInTheSearchPathThatCannotBeLoadedIsNotHiddenByTheCopyInTheJar() throws Exception {
        Path broken = Files.writeString(temporary.resolve(System.mapLibraryName("USBAccessLink")), "no library");
        assertTells(
                child().without("java.library.path").with("-Djava.library.path=/nowhere:" + temporary).run("version"),
                broken.toString(), "java.library.path = '/nowhere:" + temporary + "'", "-Dorvex.usb.library=");
        assertEquals(List.of(broken), files(folder));
    }

    @Test
    void anEmptyEntryOfTheSearchPathIsTheCurrentFolder() throws Exception {
        assertLoaded(child().without("java.library.path").with("-Djava.library.path=:/nowhere").run("version"));
        unpackedIn(cache);
    }

    @Test
    @Tag("linux")
    void aRelativeFolderForCachesIsIgnored() throws Exception {
        assertLoaded(child().withEnvironment("XDG_CACHE_HOME", "relative").run("version"));
        unpackedIn(cache);
    }

    @Test
    void aPlatformWithoutACopyInTheJarIsToldWithTheSearchPath() throws Exception {
        assertTells(
                child().with("-Dos.arch=abacus").run("version"),
                System.mapLibraryName("USBAccessLink"), "java.library.path = '/nowhere/at/all'",
                "-abacus/" + LIBRARY, "is not in the jar", "-Dorvex.usb.library=");
    }

    @Test
    void eachPlaceThatTheCopyCouldNotBeUnpackedIntoIsToldWithTheReason() throws Exception {
        Files.createDirectories(cache.getParent());
        Files.createSymbolicLink(cache, Files.createDirectory(folder.resolve("elsewhere")));
        Files.createDirectory(lastResort);
        allow(lastResort, "rwxrwxrwx");
        assertTells(
                child().run("version"),
                "unpacked into '" + cache, "'" + cache + "' is not a folder but a link",
                "unpacked into '" + lastResort, "users other than its owner may write to '" + lastResort + "'",
                "belongs to the user alone");
        assertEquals(List.of(), files(folder));
    }

    @Test
    void twoClassLoadersCannotShareAFileAndAreToldWhatToDo() throws Exception {
        // The property holds for all class loaders.
        assertTells(
                child().with("-Dorvex.usb.library=" + builtLibrary()).run("otherLoaders"),
                "already loaded in another classloader", "one class loader only", "copy in the jar");
    }
}
