package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.google.gson.JsonElement;
import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** The JSON output of the tool has exactly the fields that its page documents. */
class JsonPageTest extends ToolFixture {
    private static JsonObject page;

    @TempDir
    private Path folder;

    @BeforeAll
    static void readPage() throws Exception {
        Path build = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY)).toRealPath().getParent();
        Matcher block = Pattern.compile("(?s)```json\n(.*?)```")
                .matcher(Files.readString(build.resolve("../../docs/json.md")));
        assertTrue(block.find());
        page = JsonParser.parseString(block.group(1)).getAsJsonObject();
    }

    /** All fields of an object of the page, including those of an object that it extends. */
    private static Map<String, JsonElement> fields(JsonObject told) {
        Map<String, JsonElement> fields = new TreeMap<>();
        told.entrySet().forEach(field -> {
            if (field.getKey().equals("+")) {
                fields.putAll(fields(page.getAsJsonObject(field.getValue().getAsString())));
            } else {
                fields.put(field.getKey(), field.getValue());
            }
        });
        return fields;
    }

    private static void assertFits(JsonElement told, JsonElement written) {
        if (told.isJsonArray()) {
            written.getAsJsonArray().forEach(each -> assertFits(told.getAsJsonArray().get(0), each));
        } else if (told.isJsonObject()) {
            assertFieldsFit(fields(told.getAsJsonObject()), written.getAsJsonObject());
        } else {
            switch (told.getAsString()) {
                case "number" -> assertTrue(written.getAsJsonPrimitive().isNumber(), written::toString);
                case "boolean" -> assertTrue(written.getAsJsonPrimitive().isBoolean(), written::toString);
                case "text" -> assertTrue(written.getAsJsonPrimitive().isString(), written::toString);
                default -> assertFits(page.get(told.getAsString()), written);
            }
        }
    }

    private static void assertFieldsFit(Map<String, JsonElement> told, JsonObject written) {
        Set<String> left = new TreeSet<>(written.keySet());
        told.forEach((field, type) -> {
            String name = field.replace("?", "");
            assertTrue(field.endsWith("?") || written.has(name), () -> name + " is missing in " + written);
            if (left.remove(name)) {
                assertFits(type, written.get(name));
            }
        });
        assertEquals(Set.of(), left, "not on the page");
    }

    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "list | list --json", "describe | describe --json --serial BENCH00001", "doctor | doctor --json",
        "echo | echo --json --serial BENCH00001", "read | read --json --serial BENCH00001 --in 0x83 --size 5",
        "write | write --json --serial BENCH00001 --data 00",
        "control | control --json --serial BENCH00001 --request-type 0xC0 --request 2 --value 0x1234"
                + " --index-word 0x56 --length 3",
        "bench | bench --json --serial BENCH00001 --count 3"
    })
    void aCommandWritesWhatThePageTells(String entry, String line) {
        String out = run(line).out();
        assertFits(page.get(entry), JsonParser.parseString(out));
        if (!entry.equals("list")) {
            assertEquals(1, out.lines().count(), out);
        }
    }

    @Test
    void watchWritesAnObjectForEachEvent() {
        List<String> lines = good("watch --json --count 0").out().lines().toList();
        assertEquals(5, lines.size(), lines::toString);
        lines.subList(0, 4).forEach(line -> assertFits(page.get("watch"), JsonParser.parseString(line)));
        assertFits(page.get("watch begins"), JsonParser.parseString(lines.get(4)));
    }

    @Test
    void wholeFilesAreToldToo() throws Exception {
        Path file = Files.write(folder.resolve("file"), pattern(100));
        JsonObject sent = JsonParser.parseString(good("write --json --serial BENCH00001 --file " + file).out())
                .getAsJsonObject();
        assertFits(page.get("write"), sent);
        assertEquals(100, sent.get("bytes").getAsInt());
        JsonObject got = JsonParser.parseString(good("read --json --serial BENCH00001 --bytes 100 --to " + file).out())
                .getAsJsonObject();
        assertFits(page.get("read"), got);
        assertEquals("in", got.get("direction").getAsString());
    }

    @Test
    void theBytesReadAreThere() {
        bus.feed("bench", 0x81, new byte[] {1, (byte) 0xAB});
        JsonObject got = JsonParser.parseString(good("read --json --serial BENCH00001").out()).getAsJsonObject();
        assertEquals("01AB", got.get("data").getAsString());
        assertWrongUse("read --json --serial BENCH00001 -o -");
    }
}
