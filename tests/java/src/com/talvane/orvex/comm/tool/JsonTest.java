package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import java.util.LinkedHashMap;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class JsonTest {
    @Test
    void fieldsKeepTheirOrderAndTheirTypes() {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("name", "x");
        fields.put("count", -3);
        fields.put("there", true);
        assertEquals("{\"name\": \"x\", \"count\": -3, \"there\": true}", Json.object(fields));
        assertEquals("{}", Json.object(Map.of()));
    }

    @ParameterizedTest
    @ValueSource(strings = {
        "", "plain", "\"quoted\"", "back\\slash\\", "a\nb\tc\r\b\f\0", "\u001B[31m", "\u007F\u009B", "5 € µm ±",
        "\uD83D\uDE00", "\uD83D alone", "</script>", "\u2028\u2029", "{\"a\": 1}"
    })
    void anyTextComesBackFromAnotherReader(String text) {
        String json = Json.object(Map.of(text, text));
        JsonObject read = JsonParser.parseString(json).getAsJsonObject();
        assertEquals(text, read.get(text).getAsString(), json);
        assertTrue(json.chars().allMatch(c -> c >= ' ' && c <= '~'), json);
    }
}
