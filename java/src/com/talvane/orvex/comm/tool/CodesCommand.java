package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.UsbAccessCode;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Command;

/** Shows the meaning of the negative results; needs neither library nor device. */
@Command(name = "codes", description = "Shows the error codes.")
final class CodesCommand implements Runnable {
    @Override
    public void run() {
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("CODE", "FROM", "MEANING"));
        for (UsbAccessCode code : UsbAccessCode.values()) {
            rows.add(List.of(
                    Integer.toString(code.code()), code.isFromLibusb() ? "libusb" : "library", code.text()));
        }
        Text.table(rows).forEach(System.out::println);
    }
}
