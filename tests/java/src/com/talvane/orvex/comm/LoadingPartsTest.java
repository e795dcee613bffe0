package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.FileNotFoundException;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.Map;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** Parts of the search for the library on other systems, and for failures that this machine does not have. */
@Tag("loading")
class LoadingPartsTest {
    private final Map<String, String> before = new HashMap<>();
    private final LoadAttempts attempts = new LoadAttempts();

    private void pretend(String property, String value) {
        before.put(property, System.setProperty(property, value));
    }

    @AfterEach
    void restore() {
        before.forEach(System::setProperty);
    }

    private String failureOf(String message) {
        assertFalse(attempts.succeeds("a place", () -> {
            throw new UnsatisfiedLinkError(message);
        }));
        return attempts.failure().getMessage();
    }

    @ParameterizedTest
    @CsvSource({"Linux, amd64, linux-x86_64", "Linux, arm64, linux-aarch64", "Linux, riscv64, linux-riscv64",
        "Mac OS X, aarch64, macos-aarch64"})
    void theCopyInTheJarIsTheOneOfSystemAndProcessor(String system, String processor, String folder) {
        pretend("os.name", system);
        pretend("os.arch", processor);
        FileNotFoundException failure =
                assertThrows(FileNotFoundException.class, () -> LibraryInJar.named("libNothing.so"));
        assertEquals("META-INF/native/" + folder + "/libNothing.so is not in the jar", failure.getMessage());
    }

    @Test
    void onAMacTheCopyIsUnpackedIntoTheFolderOfCaches() {
        pretend("os.name", "Mac OS X");
        pretend("user.home", "/Users/somebody");
        assertEquals(Path.of("/Users/somebody/Library/Caches/orvex-usb-access"), UnpackPlaces.all().get(0));
    }

    @Test
    void onAMacTheCopyIsADynamicLibrary() {
        pretend("os.name", "Mac OS X");
        pretend("os.arch", "abacus");
        assertFalse(BundledLibrary.load(attempts));
        assertTrue(attempts.failure().getMessage().contains("/libUSBAccessLink_3_47.dylib is not in the jar"));
    }

    @Test
    void aFileOfAnotherClassLoaderIsExplained() {
        String told = failureOf("Native Library /a/b.so already loaded in another classloader");
        assertTrue(told.contains("A virtual machine loads a file for one class loader only"), told);
    }

    @Test
    void aFailureWithoutAMessageIsReportedLikeOthers() {
        String told = failureOf(null);
        assertTrue(told.contains("Tried a place: null."), told);
        assertFalse(told.contains("class loader"), told);
        assertFalse(told.contains("libudev"), told);
    }

    @Test
    void aVirtualMachineThatRefusesNativeCodeIsToldWithTheOptionThatAllowsIt() {
        IllegalCallerException reason = new IllegalCallerException("Illegal native access from: unnamed module");
        UnsatisfiedLinkError failure = LoadAttempts.nativeAccessDenied(reason);
        assertEquals("The native USB library could not be loaded: Illegal native access from: unnamed module. "
                + "Start Java with --enable-native-access=ALL-UNNAMED.", failure.getMessage());
        assertSame(reason, failure.getCause());
    }
}
