package com.talvane.orvex.comm.tool;

import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;

/**
 * Writes JSON: objects and lists of numbers, booleans and strings. The output is printable ASCII only, so a device's
 * strings are preserved in any character set and cannot control a terminal.
 */
final class Json {
    private Json() {
    }

    /** An object with these fields, on one line. */
    static String object(Map<String, ?> fields) {
        return value(fields);
    }

    private static String value(Object value) {
        if (value instanceof Map<?, ?> fields) {
            return fields.entrySet().stream()
                    .map(field -> text(field.getKey().toString()) + ": " + value(field.getValue()))
                    .collect(Collectors.joining(", ", "{", "}"));
        }
        if (value instanceof List<?> values) {
            return values.stream().map(Json::value).collect(Collectors.joining(", ", "[", "]"));
        }
        return value instanceof Number || value instanceof Boolean ? value.toString() : text(value.toString());
    }

    private static String text(String text) {
        StringBuilder quoted = new StringBuilder("\"");
        for (char c : text.toCharArray()) {
            if (c < ' ' || c > '~' || c == '"' || c == '\\') {
                quoted.append(String.format("\\u%04x", (int) c));
            } else {
                quoted.append(c);
            }
        }
        return quoted.append('"').toString();
    }
}
