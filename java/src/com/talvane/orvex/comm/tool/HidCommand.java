package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Reports;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Sends and reads reports of a HID device. */
@Command(
        name = "hid",
        description = "Sends bytes to a HID device as output reports, then reads its input reports; or one of the two.",
        footer = {
            "",
            "Reports have 64 bytes, and the last one is padded with 0x5A; --packet-size and --fill change this. With"
                    + " --timeout 0 a read times out at once."
        })
final class HidCommand implements Callable<Integer> {
    @Mixin
    private DeviceOptions device;

    @ArgGroup(exclusive = false, multiplicity = "1")
    private Work work;

    @ArgGroup(exclusive = false)
    private Packets packets;

    @Mixin
    private Output output;

    @Mixin
    private JsonOption json;

    private static final class Work {
        @ArgGroup
        private DataToSend send;

        @Option(
                names = "--read",
                paramLabel = "N",
                converter = Numbers.Size.class,
                description = "Read N bytes; the rest of the last report is dropped.")
        private int read;
    }

    private static final class Packets {
        @Option(
                names = "--packet-size",
                paramLabel = "N",
                required = true,
                converter = Numbers.PacketSize.class,
                description = "Size of a report in bytes, 64 to 1024.")
        private int size;

        @Option(
                names = "--fill",
                paramLabel = "BYTE",
                converter = Numbers.Octet.class,
                description = "Pad the last report with this byte (default: 0x5A); needs --packet-size.")
        private int fill = 0x5A;
    }

    @Override
    public Integer call() throws IOException {
        json.demandRoom(output);
        byte[] data = work.send == null ? null : work.send.bytes();
        try (Session session = device.session(); OpenDevice open = session.open(hidDevice(session))) {
            return move(open, data);
        }
    }

    private DeviceInfo hidDevice(Session session) {
        DeviceInfo chosen = device.find(session);
        if (!chosen.line().isHid()) {
            throw new IllegalStateException(
                    chosen.label() + " is not a HID device (orvex-usb list shows the types)");
        }
        return chosen;
    }

    private int move(OpenDevice open, byte[] data) throws IOException {
        Reports reports = packets == null
                ? Reports.standard(device.timeout)
                : new Reports(packets.size, packets.fill, device.timeout);
        open.prepare(reports);
        Map<String, Object> fields = new LinkedHashMap<>();
        int status = 0;
        if (data != null) {
            Transfer sent = open.write(reports, data);
            fields.put("out", JsonOption.sent(sent, data.length));
            boolean all = json.isWanted() ? WriteCommand.tookAll(sent, data.length)
                    : WriteCommand.tell(sent, data.length) == 0;
            status = all ? 0 : 1;
        }
        if (work.read > 0) {
            Transfer got = open.read(reports, work.read);
            fields.put("in", JsonOption.got(got, work.read));
            output.show(got, json.isWanted());
        }
        if (json.isWanted()) {
            JsonOption.write(fields);
        }
        return status;
    }
}
