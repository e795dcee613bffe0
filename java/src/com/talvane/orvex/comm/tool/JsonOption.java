package com.talvane.orvex.comm.tool;

import static picocli.CommandLine.Spec.Target.MIXEE;

import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.util.HexFormat;
import java.util.LinkedHashMap;
import java.util.Map;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** The option to write a command's result for scripts, as one object on one line. */
final class JsonOption {
    private static final HexFormat HEX = HexFormat.of().withUpperCase();

    @Option(names = "--json", description = "Write the result as a JSON object on one line, for scripts.")
    private boolean json;

    @Spec(MIXEE)
    private CommandSpec command;

    boolean isWanted() {
        return json;
    }

    /** Rejects a command line that sends both JSON and bytes to standard output. */
    void demandRoom(Output output) {
        if (json && output.isStandard()) {
            throw new ParameterException(command.commandLine(), "--json and -o - both write to standard output");
        }
    }

    static void write(Map<String, ?> fields) {
        System.out.println(Json.object(fields));
    }

    /** The result of a transfer, or of several that belong together. */
    static Map<String, Object> transfer(String direction, long bytes, long wanted, long nanos) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("direction", direction);
        fields.put("bytes", bytes);
        fields.put("wanted", wanted);
        fields.put("seconds", nanos / 1e9);
        return fields;
    }

    static Map<String, Object> sent(Transfer sent, long wanted) {
        return transfer("out", sent.data().length, wanted, sent.nanos());
    }

    static Map<String, Object> got(Transfer got, long wanted) {
        Map<String, Object> fields = transfer("in", got.data().length, wanted, got.nanos());
        fields.put("data", hex(got.data()));
        return fields;
    }

    static String hex(byte[] bytes) {
        return HEX.formatHex(bytes);
    }
}
