package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class DebugOutputTest {
    private static final Pattern SESSION = Pattern.compile(
            "(?s).*LibUSB_Initialize libusb version: : '\\d+\\.\\d+\\.\\d+.*"
                    + "\\[ORVEXCOMM_DBG\\] \\[ {0,1}\\d+\\.\\d{6}\\] \\[LibUSB_Release\\] entry\n.*"
                    + "\\[LibUSB_Release\\] valid context\n.*"
                    + "\\[LibUSB_Release\\] exit: 0\n.*");

    @ParameterizedTest(name = "ORVEXCOMM_DEBUG=''{0}''")
    @ValueSource(strings = {"1", "0", ""})
    void theSessionIsTracedWhileTheVariableIsSet(String value) throws Exception {
        ChildVm.Outcome child = new ChildVm().withEnvironment("ORVEXCOMM_DEBUG", value).run("session");
        assertEquals(0, child.status());
        assertTrue(SESSION.matcher(child.err()).matches(), child.err());
        String first = child.err().lines().filter(line -> line.contains("[ORVEXCOMM_DBG]")).findFirst().orElseThrow();
        assertTrue(first.matches("\\[ORVEXCOMM_DBG\\] \\[ 0\\.\\d{6}\\] .*"), first);
    }

    @Test
    void nothingIsTracedWithoutTheVariable() throws Exception {
        assertEquals("", new ChildVm().run("session").err());
    }
}
