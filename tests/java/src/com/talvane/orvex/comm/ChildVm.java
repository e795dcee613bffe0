package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.concurrent.TimeUnit;

/** A Java program in a separate virtual machine, with the same native library and, in memory, a separate bus. */
final class ChildVm {
    private static final String TOOL = "com.talvane.orvex.comm.tool.OrvexUsb";
    private static final List<String> ON_CLASS_PATH = List.of("-cp", System.getProperty("java.class.path"));
    private static final String NATIVE_ACCESS = "--enable-native-access=";
    private static final int FIRST_TO_WARN_OF_NATIVE_ACCESS = 24;

    private final List<String> options = new ArrayList<>(
            List.of("-Xcheck:jni", "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xmx128m"));
    private final List<String> prefix = new ArrayList<>();
    private final ProcessBuilder builder = new ProcessBuilder();

    /** The exit status and the output of a program. */
    record Outcome(int status, String out, String err) {
    }

    ChildVm() {
        if (Runtime.version().feature() >= FIRST_TO_WARN_OF_NATIVE_ACCESS) {
            options.add(NATIVE_ACCESS + "ALL-UNNAMED");
        }
        ManagementFactory.getRuntimeMXBean().getInputArguments().stream()
                .filter(option -> option.startsWith("-XX:SharedArchiveFile=")).forEach(options::add);
        Optional.ofNullable(System.getProperty("orvex.test.childOption")).ifPresent(options::add);
        passOn(NativeLibrary.PATH_PROPERTY);
        passOn("java.library.path");
        builder.environment().remove("SIMBUS_SOCKET");
        builder.environment().remove("ORVEXCOMM_DEBUG");
    }

    private void passOn(String property) {
        String value = System.getProperty(property);
        if (value != null) {
            options.add("-D" + property + "=" + value);
        }
    }

    ChildVm with(String option) {
        options.add(option);
        return this;
    }

    ChildVm without(String property) {
        options.removeIf(option -> option.startsWith("-D" + property + "="));
        return this;
    }

    /** Without the option that permits native code, which it gets otherwise. */
    ChildVm withoutNativeAccess() {
        options.removeIf(option -> option.startsWith(NATIVE_ACCESS));
        return this;
    }

    /** Starts the virtual machine through this command, whose arguments are the rest of the command line. */
    ChildVm under(String... command) {
        prefix.addAll(List.of(command));
        return this;
    }

    ChildVm withEnvironment(String name, String value) {
        builder.environment().put(name, value);
        return this;
    }

    ChildVm withoutEnvironment(String name) {
        builder.environment().remove(name);
        return this;
    }

    /** The path of the control socket, of its own bus or of a shared one. */
    ChildVm withBus(Path socket) {
        return withEnvironment("SIMBUS_SOCKET", socket.toString());
    }

    /** Runs one of the programs of {@link ChildPrograms}. */
    Outcome run(String program, String... arguments) throws Exception {
        List<String> command = java(ON_CLASS_PATH, ChildPrograms.class.getName(), program);
        command.addAll(List.of(arguments));
        return run(command);
    }

    /** Runs the command-line tool. */
    Outcome runTool(String... arguments) throws Exception {
        return run(java(ON_CLASS_PATH, TOOL, arguments));
    }

    /** Runs the command-line tool by its jar alone. */
    Outcome runJar(Path jar, String... arguments) throws Exception {
        return run(java(List.of("-jar"), jar.toString(), arguments));
    }

    /** Runs the command-line tool as a module. */
    Outcome runModule(String... arguments) throws Exception {
        Path jar = productJar();
        String path = jar + File.pathSeparator + jar.resolveSibling("lib/info.picocli.jar");
        return run(java(List.of("-p", path, "--add-modules", "info.picocli", "-m"), "com.talvane.orvex.comm", arguments));
    }

    /** Runs one of the programs of {@link ChildPrograms} in the module of the product. */
    Outcome runInModule(String program) throws Exception {
        List<String> path = List.of("-p", productJar().toString(),
                "--patch-module", "com.talvane.orvex.comm=" + testsJar(), "-m");
        return run(java(path, "com.talvane.orvex.comm/" + ChildPrograms.class.getName(), program));
    }

    /** Runs the installed command, which is in the folder of the native library and finds the rest itself. */
    Outcome runLauncher(String... arguments) throws Exception {
        builder.environment().keySet().removeAll(List.of("LD_LIBRARY_PATH", "DYLD_LIBRARY_PATH", "SIMBUS_SCENARIO"));
        withEnvironment("JAVA_HOME", System.getProperty("java.home"));
        return runBeside("orvex-usb", arguments);
    }

    /** Runs a program, given by its path relative to the folder of the native library. */
    Outcome runBeside(String program, String... arguments) throws Exception {
        Path library = Path.of(System.getProperty(NativeLibrary.PATH_PROPERTY));
        List<String> command = new ArrayList<>(prefix);
        command.add(library.resolveSibling(program).toString());
        command.addAll(List.of(arguments));
        return run(command);
    }

    /** Starts the command-line tool. Its output can be read at once; its standard error goes to the file. */
    Process startTool(Path err, String... arguments) throws IOException {
        builder.redirectError(err.toFile());
        return builder.command(java(ON_CLASS_PATH, TOOL, arguments)).start();
    }

    /** The process has ended afterwards in any case. */
    private Outcome run(List<String> command) throws Exception {
        Path out = Files.createTempFile("child", ".out");
        Path err = Files.createTempFile("child", ".err");
        try {
            builder.redirectOutput(out.toFile()).redirectError(err.toFile());
            Process process = builder.command(command).start();
            boolean ended = process.waitFor(120, TimeUnit.SECONDS);
            process.destroyForcibly().waitFor();
            assertTrue(ended, () -> String.join(" ", command) + " did not end: " + read(out) + read(err));
            return new Outcome(process.exitValue(), read(out), read(err));
        } finally {
            Files.delete(out);
            Files.delete(err);
        }
    }

    private List<String> java(List<String> how, String main, String... arguments) {
        List<String> command = new ArrayList<>(prefix);
        command.add(System.getProperty("java.home") + "/bin/java");
        command.addAll(options);
        command.addAll(how);
        command.add(main);
        command.addAll(List.of(arguments));
        return command;
    }

    /** The published jar. */
    static Path productJar() {
        return jarOf(ORVEXCommUSBAccess.class);
    }

    static Path testsJar() {
        return jarOf(ChildVm.class);
    }

    private static Path jarOf(Class<?> type) {
        return Path.of(type.getProtectionDomain().getCodeSource().getLocation().getPath());
    }

    private static String read(Path file) {
        try {
            return Files.readString(file);
        } catch (IOException e) {
            return e.toString();
        }
    }
}
