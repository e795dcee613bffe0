package example;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.util.Arrays;
import simbus.SimulatedDevice;

/** A boot loader, from which dfu-util reads the firmware and to which it writes another. */
public final class BootLoader extends SimulatedDevice {
    private static final String DESCRIPTION = """
            {"vendorId": "0x1209", "productId": "0x7009", "serial": "%s", "interfaces": [
              {"class": 254, "subClass": 1, "protocol": 2, "string": "Flash", "extra": "092107FF0040001001"}]}
            """.replace("\n", "");
    private static final int IDLE = 2;
    private static final int DOWNLOADING = 5;
    private static final int MANIFESTING = 6;
    private static final int UPLOADING = 9;
    private static final int BLOCK = 64;

    private final ByteArrayOutputStream coming = new ByteArrayOutputStream();
    private byte[] firmware = new byte[200];
    private int state = IDLE;

    BootLoader(String serial) throws IOException {
        super("boot-loader-" + serial, String.format(DESCRIPTION, serial));
    }

    @Override
    protected byte[] handleControl(Setup setup, byte[] data) throws NoAnswer {
        switch (setup.request()) {
            case 1:
                return download(data);
            case 2:
                return upload(setup.value() * BLOCK, setup.length());
            case 3:
                state = state == MANIFESTING ? IDLE : state;
                return new byte[] {0, 0, 0, 0, (byte) state, 0};
            case 4, 6: // clears a fault, or aborts
                coming.reset();
                state = IDLE;
                return null;
            case 5:
                return new byte[] {(byte) state};
            default:
                throw NoAnswer.STALL;
        }
    }

    private byte[] download(byte[] data) {
        coming.writeBytes(data);
        state = DOWNLOADING;
        if (data.length == 0) {
            firmware = coming.toByteArray();
            coming.reset();
            state = MANIFESTING;
        }
        return null;
    }

    private byte[] upload(int offset, int length) {
        int start = Math.min(offset, firmware.length);
        byte[] block = Arrays.copyOfRange(firmware, start, Math.min(start + length, firmware.length));
        state = block.length == length ? UPLOADING : IDLE;
        return block;
    }

    public static void main(String[] arguments) throws IOException {
        try (BootLoader device = new BootLoader("JAVA0001")) {
            device.run();
        }
    }
}
