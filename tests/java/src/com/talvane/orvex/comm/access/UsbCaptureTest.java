package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.talvane.orvex.comm.Capture;
import com.talvane.orvex.comm.Capture.Packet;
import com.talvane.orvex.comm.access.UsbRecording.Without;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class UsbCaptureTest extends AccessTest {
    @TempDir
    Path folder;

    @Test
    void first() throws Exception {
        Path file = folder.resolve("a.pcapng");
        UsbDevice hid = pluggedHid();
        UsbRecording r = session().record(file);
        UsbDevice bench = open(BENCH);
        write(bench, 1, new byte[] {1, 2, 3});
        byte[] in = new byte[64];
        read(bench, 0x81, in);
        try { read(bench, 0x85, in); } catch (UsbException e) { System.out.println(e); }
        try { write(bench, 5, in); } catch (UsbException e) { System.out.println(e); }
        try { bench.readControl(0xC0, 3, 0, 0, 4, 100); } catch (UsbException e) { System.out.println(e); }
        try { bench.readControl(0xC0, 4, 0, 0, 4, 100); } catch (UsbException e) { System.out.println(e); }
        try { bench.readBulk(0x84, in, 0, 64, 10); } catch (UsbException e) { System.out.println(e); }
        
        hid.open();
        hid.writeReports(pattern(70), 0, 70, AMPLE);
        hid.readReports(in, 0, 64, AMPLE);
        bus.unplug("bench");
        try { read(bench, 0x84, in); } catch (UsbException e) { System.out.println(e); }
        System.out.println(r);
        r.close();
        for (Packet p : Capture.packets(file)) System.out.println(p.bus() + "." + p.address() + " " + p);
        java.nio.file.Files.copy(file, Path.of("/tmp/javarecord/a.pcapng"), java.nio.file.StandardCopyOption.REPLACE_EXISTING);
    }
}
