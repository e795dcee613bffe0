package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

class LibraryLoadingTest {
    private static void assertTells(ChildVm.Outcome child, String... texts) {
        assertEquals(1, child.status());
        assertTrue(child.err().contains("java.lang.UnsatisfiedLinkError"), child.err());
        for (String text : texts) {
            assertTrue(child.err().contains(text), () -> "'" + text + "' is missing in: " + child.err());
        }
    }

    @Test
    void aMissingFileIsNamedWithThePropertyThatAskedForIt() throws Exception {
        assertTells(
                new ChildVm().with("-Dorvex.usb.library=/nowhere/lib.so").run("session"),
                "Tried the file '/nowhere/lib.so'", "orvex.usb.library", "-Djava.library.path=");
    }

    @Test
    void aRelativePathIsRefused() throws Exception {
        assertTells(new ChildVm().with("-Dorvex.usb.library=lib.so").run("session"), "absolute path");
    }

    @Test
    void withoutThePropertyTheSearchPathIsNamed() throws Exception {
        assertTells(
                new ChildVm().without("orvex.usb.library").with("-Djava.library.path=/nowhere/at/all").run("session"),
                System.mapLibraryName("USBAccessLink"), "java.library.path = '/nowhere/at/all'",
                "-Dorvex.usb.library=");
    }
}
