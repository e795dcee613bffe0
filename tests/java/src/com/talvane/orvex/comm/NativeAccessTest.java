package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Virtual machines that load native code only if an option allows it. */
@Tag("newest")
class NativeAccessTest extends LoadingFixture {
    @Override
    ChildVm child() {
        return super.child().withoutNativeAccess().with("--illegal-native-access=deny");
    }

    private static void assertRuns(ChildVm.Outcome tool) {
        assertEquals("orvex-usb, library version 3.47\n", tool.out(), tool.err());
        assertEquals("", tool.err());
    }

    @Test
    void theClassPathNeedsLeaveForUnnamedModules() throws Exception {
        assertTells(child().runTool("--version"), "could not be loaded: Illegal native access",
                "Start Java with --enable-native-access=ALL-UNNAMED.");
        assertRuns(child().with("--enable-native-access=ALL-UNNAMED").runTool("--version"));
    }

    @Test
    void theModuleNeedsLeaveByItsName() throws Exception {
        assertTells(child().runModule("--version"), "could not be loaded: Illegal native access",
                "Start Java with --enable-native-access=com.talvane.orvex.comm.");
        assertRuns(child().with("--enable-native-access=com.talvane.orvex.comm").runModule("--version"));
    }

    @Test
    void theManifestOfTheJarGivesLeave() throws Exception {
        assertRuns(child().runJar(ChildVm.productJar(), "--version"));
    }
}
