package example;

import com.talvane.orvex.comm.access.UsbChange;
import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbInputListener;
import com.talvane.orvex.comm.access.UsbSession;
import java.awt.BorderLayout;
import java.awt.event.WindowAdapter;
import java.awt.event.WindowEvent;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import javax.swing.DefaultListModel;
import javax.swing.JButton;
import javax.swing.JFrame;
import javax.swing.JList;
import javax.swing.JPanel;
import javax.swing.JScrollPane;
import javax.swing.JTextArea;
import javax.swing.JTextField;
import javax.swing.SwingUtilities;

/**
 * A window that lists tools as they come and go, sends text to the selected one and shows what it answers.
 *
 * <p>The event dispatch thread draws and waits for nobody: listeners are called on it, and whatever may wait for a
 * device runs on a thread of its own, one thing after another.
 */
public final class ToolWindow extends JFrame {
    private static final long serialVersionUID = 1L;
    private static final int[] VENDORS = {0x6A5C, 0x6A5D};
    private static final int OUT = 0x01;
    private static final int IN = 0x81;
    private static final int READ_SIZE = 512;
    private static final int TIMEOUT_MS = 2000;

    private final DefaultListModel<UsbDevice> present = new DefaultListModel<>();
    private final JList<UsbDevice> tools = new JList<>(present);
    private final JTextArea log = new JTextArea();
    private final JTextField text = new JTextField("Hello");
    private final JButton send = new JButton("Send");

    private final transient ExecutorService usbThread = Executors.newSingleThreadExecutor();
    /** The tool that is in use, or null; on the thread for devices only. */
    private transient UsbDevice tool;

    private interface Call {
        void run() throws UsbException;
    }

    public static void main(String[] arguments) throws UsbException {
        UsbSession session = UsbSession.open();
        SwingUtilities.invokeLater(() -> new ToolWindow(session).setVisible(true));
    }

    /** On the event dispatch thread. The session is closed with the window. */
    ToolWindow(UsbSession session) {
        super("Tools");
        JPanel line = new JPanel(new BorderLayout());
        line.add(text, BorderLayout.CENTER);
        line.add(send, BorderLayout.EAST);
        add(new JScrollPane(tools), BorderLayout.NORTH);
        add(new JScrollPane(log), BorderLayout.CENTER);
        add(line, BorderLayout.SOUTH);
        log.setEditable(false);
        tools.addListSelectionListener(event -> {
            if (!event.getValueIsAdjusting()) {
                UsbDevice selected = tools.getSelectedValue();
                onUsbThread(() -> use(selected));
            }
        });
        send.addActionListener(event -> {
            byte[] bytes = text.getText().getBytes(StandardCharsets.US_ASCII);
            onUsbThread(() -> send(bytes));
        });
        addWindowListener(new WindowAdapter() {
            @Override
            public void windowClosed(WindowEvent event) {
                onUsbThread(session::close);
                onUsbThread(usbThread::shutdown);
            }
        });
        setDefaultCloseOperation(DISPOSE_ON_CLOSE);
        setSize(600, 400);
        onUsbThread(() -> {
            // Listen first, then look, so that no tool is missed in between.
            session.onChange(this::show, SwingUtilities::invokeLater);
            session.list(VENDORS).devices().forEach(device -> SwingUtilities.invokeLater(() -> list(device)));
        });
    }

    private void show(UsbChange change) {
        log.append(change + "\n");
        list(change.device());
    }

    private void list(UsbDevice device) {
        if (!device.isPresent()) {
            present.removeElement(device); // If it was selected, it is not any more.
        } else if (!present.contains(device)) {
            present.addElement(device);
        }
    }

    private void onUsbThread(Call call) {
        usbThread.execute(() -> {
            try {
                call.run();
            } catch (UsbException | RuntimeException e) {
                say(e.getMessage());
            }
        });
    }

    private void say(String line) {
        SwingUtilities.invokeLater(() -> log.append(line + "\n"));
    }

    private void use(UsbDevice selected) throws UsbException {
        if (tool != null) {
            tool.close();
        }
        tool = selected;
        if (tool != null) {
            String name = tool.open().label() + ": ";
            UsbInputListener answers = bytes -> log.append(name + printable(bytes) + "\n");
            if (tool.info().isHid()) {
                tool.onReport(answers, SwingUtilities::invokeLater);
            } else {
                tool.onData(IN, READ_SIZE, answers, SwingUtilities::invokeLater);
            }
            say(name + "opened");
        }
    }

    private static String printable(byte[] bytes) {
        return new String(bytes, StandardCharsets.US_ASCII).replaceAll("\\P{Print}+", " ");
    }

    private void send(byte[] bytes) throws UsbException {
        if (tool == null) {
            say("select a tool first");
        } else if (tool.info().isHid()) {
            tool.writeReports(bytes, 0, bytes.length, TIMEOUT_MS);
        } else {
            tool.writeFully(OUT, bytes, 0, bytes.length, TIMEOUT_MS);
        }
    }
}
