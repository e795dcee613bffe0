package example;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class MonitorTest {
    private static final Path RELEASE = Path.of(System.getProperty("usb.release"));
    private static final Path SCENARIO = Path.of(System.getProperty("scenario"));

    @TempDir
    Path folder;

    private ToolProcess monitor(String... arguments) throws Exception {
        return new ToolProcess(RELEASE, SCENARIO, folder.resolve("bus"), arguments);
    }

    @Test
    void aDeviceMayComeAndGo() throws Exception {
        try (ToolProcess monitor = monitor("MON00001")) {
            // The bus is in the tool's process: from here on it listens.
            assertEquals("waiting for MON00001", monitor.nextLine());
            try (SimulatedBus bus = new SimulatedBus(folder.resolve("bus"))) {
                for (int times = 0; times < 2; times++) {
                    bus.plug("monitored");
                    assertEquals("MON00001 is there", monitor.nextLine());
                    bus.feed("monitored", 0x81, "temperature 21\n");
                    assertEquals("temperature 21", monitor.nextLine());
                    bus.unplug("monitored");
                    assertEquals("MON00001 has left", monitor.nextLine());
                }
            }
        }
    }

    @Test
    void otherDevicesAreLeftAlone() throws Exception {
        try (ToolProcess monitor = monitor("MON00001")) {
            assertEquals("waiting for MON00001", monitor.nextLine());
            try (SimulatedBus bus = new SimulatedBus(folder.resolve("bus"))) {
                bus.feed("other", 0x81, "not for this tool\n");
                bus.plug("monitored");
                assertEquals("MON00001 is there", monitor.nextLine());
                bus.feed("monitored", 0x81, "but this\n");
                assertEquals("but this", monitor.nextLine());
            }
        }
    }

    @Test
    void withoutASerialNumberTheUsageIsShown() throws Exception {
        try (ToolProcess monitor = monitor()) {
            assertEquals("usage: Monitor SERIAL", monitor.nextLine());
            assertEquals(2, monitor.exitStatus());
        }
    }
}
