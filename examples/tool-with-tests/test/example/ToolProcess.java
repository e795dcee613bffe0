package example;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;

/** The tool as its users start it, but on the simulated bus. */
final class ToolProcess implements AutoCloseable {
    private static final int DEADLINE_SECONDS = 30;
    // Without it Java 24 and newer print warnings among the tool's lines.
    private static final String NATIVE_CODE_IS_WELCOME = "--enable-native-access=ALL-UNNAMED";

    private final Process process;
    private final BlockingQueue<String> lines = new LinkedBlockingQueue<>();

    /** `release` is the release build of the library; the tool's bus listens at `socket`. */
    ToolProcess(Path release, Path scenario, Path socket, String... arguments) throws IOException {
        ProcessBuilder start = new ProcessBuilder(Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                NATIVE_CODE_IS_WELCOME, "-cp", System.getProperty("java.class.path"), Monitor.class.getName());
        start.command().addAll(List.of(arguments));
        start.environment().put("LD_LIBRARY_PATH", release.resolve("sim/lib").toString());
        start.environment().put("SIMBUS_SCENARIO", scenario.toString());
        start.environment().put("SIMBUS_SOCKET", socket.toString());
        process = start.redirectErrorStream(true).start();
        Thread reader = new Thread(this::takeLines);
        reader.setDaemon(true);
        reader.start();
    }

    private void takeLines() {
        try (BufferedReader output = process.inputReader()) {
            output.lines().forEach(lines::add);
        } catch (IOException | UncheckedIOException e) {
            lines.add(e.toString());
        }
    }

    /** The next line of its output; waits for it, but not for ever. */
    String nextLine() throws InterruptedException {
        String line = lines.poll(DEADLINE_SECONDS, TimeUnit.SECONDS);
        return line == null ? "nothing for " + DEADLINE_SECONDS + " s" : line;
    }

    int exitStatus() throws InterruptedException {
        return process.waitFor(DEADLINE_SECONDS, TimeUnit.SECONDS) ? process.exitValue() : -1;
    }

    @Override
    public void close() {
        process.destroyForcibly();
    }
}
