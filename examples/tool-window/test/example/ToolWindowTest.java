package example;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.talvane.orvex.comm.access.UsbBusyException;
import com.talvane.orvex.comm.access.UsbSession;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Set;
import java.util.concurrent.Callable;
import java.util.concurrent.Executors;
import java.util.concurrent.FutureTask;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.stream.IntStream;
import javax.swing.JButton;
import javax.swing.JList;
import javax.swing.JTextArea;
import javax.swing.JTextField;
import javax.swing.SwingUtilities;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.condition.DisabledIf;

/** The window on a display, with the simulated bus in this process. */
@DisabledIf(value = "java.awt.GraphicsEnvironment#isHeadless", disabledReason =
        "no window can be opened: Xvfb, or the part of Java for windows (Debian: xvfb, default-jre), is not installed")
class ToolWindowTest {
    private static final long DEADLINE_NANOS = TimeUnit.SECONDS.toNanos(30);

    private UsbSession session;
    private ToolWindow window;
    private SimulatedBus bus;
    private boolean isSecondPlugged;

    @BeforeEach
    void openTheWindow() throws Exception {
        session = UsbSession.open();
        bus = new SimulatedBus(Path.of(System.getenv("SIMBUS_SOCKET")));
        window = onEventThread(() -> new ToolWindow(session));
        doOnEventThread(() -> window.setVisible(true));
        awaitTools("PROBE001", "HID00001");
    }

    @AfterEach
    void closeTheWindow() throws Exception {
        doOnEventThread(window::dispose);
        await("the session is closed", () -> session.toString().equals("session, closed"));
        if (isSecondPlugged) {
            bus.unplug("second");
        }
        bus.close();
    }

    private void plugSecond() throws Exception {
        bus.plug("second");
        isSecondPlugged = true;
        awaitTools("PROBE001", "HID00001", "PROBE002");
    }

    private static <T> T onEventThread(Callable<T> call) throws Exception {
        FutureTask<T> task = new FutureTask<>(call);
        SwingUtilities.invokeLater(task);
        return task.get(DEADLINE_NANOS, TimeUnit.NANOSECONDS);
    }

    private static void doOnEventThread(Runnable work) throws Exception {
        onEventThread(Executors.callable(work));
    }

    private static void await(String what, Callable<Boolean> condition) throws Exception {
        long end = System.nanoTime() + DEADLINE_NANOS;
        while (!onEventThread(condition)) {
            assertTrue(System.nanoTime() - end < 0, () -> "waited in vain: " + what);
            LockSupport.parkNanos(TimeUnit.MILLISECONDS.toNanos(30));
        }
    }

    private <T> T part(Class<T> type) {
        return Picture.parts(window.getContentPane()).stream().filter(type::isInstance).map(type::cast)
                .filter(part -> !(part instanceof JButton button && button.getText().isEmpty()))
                .findFirst().orElseThrow();
    }

    private List<String> tools() {
        JList<?> list = part(JList.class);
        return IntStream.range(0, list.getModel().getSize())
                .mapToObj(i -> list.getModel().getElementAt(i).toString().replace(", open", "")).toList();
    }

    private void awaitTools(String... serials) throws Exception {
        await("the tools " + List.of(serials), () -> Set.copyOf(tools()).equals(Set.of(serials)));
    }

    private void awaitLog(String line) throws Exception {
        await("the line " + line, () -> part(JTextArea.class).getText().lines().anyMatch(line::equals));
    }

    private void select(String serial) throws Exception {
        doOnEventThread(() -> part(JList.class).setSelectedIndex(tools().indexOf(serial)));
    }

    private void send(String text) throws Exception {
        doOnEventThread(() -> {
            part(JTextField.class).setText(text);
            part(JButton.class).doClick();
        });
    }

    @Test
    void toolsAreListedAsTheyComeAndGo() throws Exception {
        plugSecond();
        awaitLog("ARRIVED PROBE002");
        bus.unplug("second");
        awaitTools("PROBE001", "HID00001");
        awaitLog("LEFT PROBE002, absent");
        plugSecond();
        awaitLog("CAME_BACK PROBE002");
    }

    @Test
    void theSelectedToolAnswers() throws Exception {
        send("Hello");
        awaitLog("select a tool first");
        select("PROBE001");
        send("Hello");
        awaitLog("PROBE001: Hello");
        bus.feed("probe", 0x81, "by itself");
        awaitLog("PROBE001: by itself");
        select("HID00001");
        send("report");
        await("a report", () -> part(JTextArea.class).getText().contains("HID00001: report"));
    }

    @Test
    void aToolThatIsPulledInUseCanBeUsedAgain() throws Exception {
        select("PROBE001");
        awaitLog("PROBE001: opened");
        bus.unplug("probe");
        awaitTools("HID00001");
        send("Hello");
        awaitLog("select a tool first");
        bus.plug("probe");
        awaitTools("HID00001", "PROBE001");
        select("PROBE001");
        send("again");
        awaitLog("PROBE001: again");
    }

    @Test
    void whileADeviceIsWaitedForTheWindowAnswers() throws Exception {
        plugSecond();
        select("PROBE002");
        awaitLog("PROBE002: opened");
        send("into the void");
        assertFalse(onEventThread(this::saysFailure), "the window stood still until the device was given up");
        await("the failure", this::saysFailure);
    }

    private boolean saysFailure() {
        return part(JTextArea.class).getText().contains("write to endpoint 0x01 of PROBE002");
    }

    @Test
    void theSessionIsClosedWithTheWindow() throws Exception {
        assertThrows(UsbBusyException.class, UsbSession::open);
        doOnEventThread(window::dispose);
        await("another session can be opened", () -> {
            try {
                UsbSession.open().close();
                return true;
            } catch (UsbBusyException e) {
                return false;
            }
        });
    }

    /** The window as the documentation shows it; and what the picture there shows is what it looks like. */
    @Test
    void thePictureShowsTheWindow() throws Exception {
        bus.unplug("reports"); // so that it is the last of the two
        awaitTools("PROBE001");
        bus.plug("reports");
        awaitTools("PROBE001", "HID00001");
        select("PROBE001");
        awaitLog("PROBE001: opened");
        plugSecond();
        send("Hello");
        awaitLog("PROBE001: Hello");
        Picture picture = onEventThread(() -> Picture.of(window));
        assertTrue(picture.colours() > 10, "nothing was drawn");
        if (!System.getProperty("picture").isEmpty()) {
            picture.write(Path.of(System.getProperty("picture")));
        }
        Path file = Path.of(System.getProperty("picture.kept"));
        assumeTrue(Files.exists(file), () -> "there is no picture to compare with: " + file);
        Picture kept = Picture.read(file);
        assertEquals(kept.structure(), picture.structure(), "run with PICTURE=" + file + " makes a new one");
        assertTrue(kept.colours() > 10, "nothing was drawn");
    }
}
