package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The copies of libusb and hidapi in the jar, on a machine without them. Needs root, to hide those of this machine. */
@Tag("loading")
@Tag("linux")
class MissingLibrariesTest extends LoadingFixture {
    private static final Path SYSTEM = Path.of(
            "/usr/lib", System.getProperty("os.arch").replace("amd64", "x86_64") + "-linux-gnu");
    private static final String USB = "libusb-1.0.so.0";
    private static final String HID = "libhidapi-hidraw.so.0";
    private static final String UDEV = "libudev.so.1";
    private static final String OURS = LIBRARY + ".so";

    /**
     * Mounts links to its own contents over a folder ($1), without the files whose names match $3; $2 may replace them.
     */
    private static final String HIDE = """
            set -e
            scratch=$(mktemp -d "$2/XXXXXX")
            mkdir "$scratch/real" "$scratch/rest"
            mount --bind "$1" "$scratch/real"
            ln -s "$scratch/real"/* "$scratch/rest"
            for name in $3; do rm "$scratch/rest/$name"*; done
            cp -R "$2/instead/." "$scratch/rest"
            mount --bind "$scratch/rest" "$1"
            shift 3
            exec "$@"
            """;

    private Path scratch;
    private Path instead;

    @BeforeEach
    void needRoot() throws IOException {
        assumeTrue("root".equals(System.getProperty("user.name")), "needs root, to hide libraries of the system");
        scratch = Files.createDirectory(folder.resolve("scratch"));
        instead = Files.createDirectory(scratch.resolve("instead"));
    }

    private ChildVm childWithout(String... names) {
        return child().withoutEnvironment("LD_LIBRARY_PATH").under("unshare", "-m", "sh", "-c", HIDE, "sh",
                SYSTEM.toString(), scratch.toString(), String.join(" ", names));
    }

    private static List<String> namesIn(Path place) throws IOException {
        return files(place).stream().map(file -> file.getFileName().toString()).sorted().toList();
    }

    private Path unpacked(String name) throws IOException {
        return files(cache).stream().filter(file -> file.endsWith(name)).findFirst().orElseThrow();
    }

    @Test
    void whatTheSystemHasIsNotUnpacked() throws Exception {
        assertLoaded(childWithout().run("version"));
        assertEquals(List.of(OURS), namesIn(folder));
    }

    @ParameterizedTest
    @ValueSource(strings = {USB, HID, USB + " " + HID})
    void whatIsMissingComesFromTheJar(String missing) throws Exception {
        assertLoaded(childWithout(missing).run("session"));
        assertEquals(Stream.of((OURS + " " + missing).split(" ")).sorted().toList(), namesIn(cache));
        assertEquals(namesIn(cache), namesIn(folder));
    }

    @Test
    void theCopiesAreTheSystemsOwnFilesAndAreComparedBeforeEachUse() throws Exception {
        assertLoaded(childWithout(USB, HID).run("version"));
        for (String name : List.of(USB, HID)) {
            assertArrayEquals(Files.readAllBytes(SYSTEM.resolve(name)), Files.readAllBytes(unpacked(name)), name);
            Files.writeString(unpacked(name), "not what it was");
        }
        assertLoaded(childWithout(USB, HID).run("version"));
        for (String name : List.of(USB, HID)) {
            assertArrayEquals(Files.readAllBytes(SYSTEM.resolve(name)), Files.readAllBytes(unpacked(name)), name);
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {USB, HID})
    void aBrokenLibraryOfTheSystemIsToldAndNotHidden(String broken) throws Exception {
        Files.writeString(instead.resolve(broken), "no library");
        assertTells(childWithout(USB, HID).run("version"), "/" + SYSTEM.getFileName() + "/" + broken + ": ");
        assertEquals(List.of(), files(home).stream().filter(file -> file.endsWith(broken)).toList());
    }

    @ParameterizedTest
    @ValueSource(strings = {"false", "no", "TRUE", ""})
    void thePropertyForbidsIt(String value) throws Exception {
        assertTells(childWithout(USB, HID).with("-Dorvex.usb.fallback=" + value).run("version"),
                OURS + ": " + USB + ": ", "orvex.usb.fallback is not 'true'");
        assertEquals(List.of(OURS), namesIn(home));
    }

    @Test
    @Tag("shipped") // class loaders that count what they reach open the file of the results at once
    void classLoadersThatComeAtOnceAreServed() throws Exception {
        ChildVm.Outcome child = childWithout(USB, HID).run("loadersAtOnce");
        assertLoaded(child);
        assertEquals("0 0\n0 0\n0 0\n", child.out(), child.err());
        assertTrue(namesIn(cache).containsAll(List.of(LIBRARY + "-3.so", USB, HID)), () -> child.out());
    }

    @Test
    void classLoadersThatComeOneAfterTheOtherShareTheCopies() throws Exception {
        assertLoaded(childWithout(USB, HID).run("otherLoaders"));
        assertEquals(Stream.of(OURS, LIBRARY + "-2.so", LIBRARY + "-3.so", USB, HID).sorted().toList(), namesIn(cache));
    }

    @Test
    void theLibraryPathGoesBeforeTheCopies() throws Exception {
        String drops = System.getenv("LD_LIBRARY_PATH");
        assertLoaded(childWithout(USB, HID).withEnvironment("LD_LIBRARY_PATH", drops).run("session"));
        assertEquals(List.of(OURS), namesIn(folder));
    }

    @Test
    void aLibraryThatTheUserHasChosenGetsNoCopies() throws Exception {
        Path built = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY));
        assertTells(childWithout(USB).with("-Dorvex.usb.library=" + built).run("version"), ": " + USB + ": ");
        assertTells(childWithout(USB).without("java.library.path")
                .with("-Djava.library.path=" + built.getParent()).run("version"), ": " + USB + ": ");
        assertEquals(List.of(), namesIn(home));
    }

    @Test
    void withoutLibudevTheMessageTellsWhatToInstall() throws Exception {
        assertTells(childWithout(USB, HID, UDEV).run("version"), USB + ": " + UDEV + ": ", "apt-get install libudev1");
        ChildVm.Outcome doctor = childWithout(USB, HID, UDEV).runTool("doctor");
        assertTrue(doctor.out().contains("libudev is missing\n         sudo apt-get install libudev1\n"), doctor.out());
    }

    @Test
    void theDoctorTellsWhichCopiesAreInUse() throws Exception {
        String out = childWithout(HID).runTool("doctor").out();
        assertTrue(out.contains("/" + OURS + ", the copy in the jar\n"), out);
        assertTrue(out.contains("/" + HID + ", the copy in the jar\n"), out);
        assertTrue(out.lines().anyMatch(line -> line.matches(".*/libusb-1\\.0\\.so[.0-9]*")), out);
    }
}
