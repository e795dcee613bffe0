package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** The messages of the tool to new users. */
class ToolMannersTest extends ToolFixture {
    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "write --serial BENCH00001 --data 00 --out 0x81 | 0x81", "echo --serial BENCH00001 --out 0x81 | 0x81",
        "bench --serial BENCH00001 --out 0x83 --count 1 | 0x83", "read --serial BENCH00001 --in 0x01 | 0x01",
        "echo --serial BENCH00001 --in 1 | 1", "bench --serial BENCH00001 --in 0x90 --count 1 | 0x90"
    })
    void anEndpointOfTheOtherDirectionIsNotTaken(String line, String endpoint) {
        assertWrongUse(line);
        assertTrue(run(line).err().contains("'" + endpoint + "' is not an "), run(line).err());
        assertEquals(0, bus.received("bench", 0x01).size());
    }

    @Test
    void aTimeOutIsToldInWords() {
        assertFails("read --serial BENCH00001 --in 0x84 --timeout 50",
                "read from endpoint 0x84 of BENCH00001: no data within 50 ms (-150; --timeout changes this)");
        assertFails("write --serial BENCH00001 --out 4 --data 00 --timeout 50",
                "write to endpoint 0x04 of BENCH00001: not accepted within 50 ms (-150; --timeout changes this)");
    }

    @Test
    void aControlRequestThatShouldMoveBytesAndMovesNoneFails() {
        assertFails("control --serial BENCH00001 --request-type 0xC0 --request 3 --length 8",
                "BENCH00001 refused the request, or had no data: 0 of 8 bytes");
        assertFails("control --serial BENCH00001 --request-type 0x40 --request 3 --data 0102",
                "BENCH00001 refused the request: 0 of 2 bytes");
        assertEquals(0, run("control --serial BENCH00001 --request-type 0xC0 --request 2 --value 0x1234"
                + " --index-word 0x56").status(), "no bytes were asked for");
    }
}
