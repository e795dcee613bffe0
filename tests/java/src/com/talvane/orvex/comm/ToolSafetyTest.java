package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.tool.ToolRun;
import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The tool with devices whose strings are hostile. */
@Tag("memory")
class ToolSafetyTest extends ToolFixture {
    private static final String FORGED = "1:=6A5C:=1001:=0100:=Talvane:=Bench Tool:=FORGED01:=x:=b:=0:=0:=end";

    @BeforeEach
    void plugTheLiar() {
        bus.unplug("bench");
        bus.unplug("pair");
        bus.change("pair", "{\"product\": \"\\u001b[2J\\u009bRed\", \"serial\": \"A\\r\\n" + FORGED + "\"}");
        bus.plug("pair");
    }

    @Test
    void aTextCannotForgeARecordInAPipe() {
        List<String> records = good("list --raw --vendor 0x6A5C").out().lines().toList();
        assertEquals(1, records.size(), records::toString);
        assertTrue(records.get(0).contains(":=A??" + FORGED + ":=x:="), records::toString);
        assertTrue(records.get(0).contains(":=\u001B[2J\u009BRed:="), "other characters stay as they are");
    }

    @Test
    void aTextDoesNotSteerATerminal() {
        ToolRun run = onTerminals("out", "list --raw --vendor 0x6A5C");
        assertEquals(1, run.out().lines().count(), run.out());
        assertTrue(run.out().contains(":=?[2J?Red:=A??" + FORGED + ":="), run.out());
    }
}
