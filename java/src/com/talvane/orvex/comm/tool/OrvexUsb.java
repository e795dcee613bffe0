package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import java.io.IOException;
import picocli.CommandLine;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Help;
import picocli.CommandLine.Help.Ansi;
import picocli.CommandLine.IExecutionStrategy;
import picocli.CommandLine.IVersionProvider;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParseResult;
import picocli.CommandLine.RunLast;
import picocli.CommandLine.ScopeType;

/** The command-line tool: its name, its commands, and its exit status. */
@Command(
        name = "orvex-usb",
        description = "Finds USB tools, opens them and moves data. Each command has its own --help.",
        versionProvider = OrvexUsb.Version.class,
        subcommands = {
            ListCommand.class, WatchCommand.class, DescribeCommand.class, EchoCommand.class, ReadCommand.class,
            WriteCommand.class, HidCommand.class, ControlCommand.class, BenchCommand.class, ResetCommand.class,
            RecordCommand.class, ReplayCommand.class, DoctorCommand.class, CodesCommand.class
        },
        synopsisSubcommandLabel = "COMMAND",
        footer = {
            "",
            "With --simulate[=SCENARIO] anywhere on the line before -- the tool uses a simulated bus, with the devices"
                    + " of the scenario file (or a few standard ones), and no USB hardware.",
            "With ORVEXCOMM_DEBUG in the environment the library writes a trace to standard error; NO_COLOR"
                    + " switches off colours on a terminal."
        },
        exitCodeListHeading = "%nExit status:%n",
        exitCodeList = {
            "0:success",
            "1:a device or USB failure, reported on standard error",
            "2:invalid command line",
            "130:ended by Ctrl-C"
        })
final class OrvexUsb {
    @Option(names = {"-h", "--help"}, usageHelp = true, scope = ScopeType.INHERIT, description = "Show this help.")
    private boolean help;

    @Option(names = "--version", versionHelp = true, description = "Show the version of the library.")
    private boolean version;

    @ArgGroup(exclusive = false)
    private RecordOptions recording;

    private OrvexUsb() {
    }

    /**
     * Runs the tool and ends the process with its exit status.
     *
     * @param args the command line
     */
    public static void main(String[] args) {
        System.exit(run(args));
    }

    private static int run(String[] args) {
        try {
            return commandLine().execute(args);
        } catch (UnsatisfiedLinkError e) {
            System.err.println("orvex-usb: " + e.getMessage());
            return CommandLine.ExitCode.SOFTWARE;
        }
    }

    static CommandLine commandLine() {
        OrvexUsb tool = new OrvexUsb();
        CommandLine line = new CommandLine(tool);
        line.setExecutionStrategy(tool::execute);
        line.setUsageHelpAutoWidth(true);
        line.setExpandAtFiles(false); // A value may begin with an @.
        line.setColorScheme(Help.defaultColorScheme(Terminal.hasColours() ? Ansi.ON : Ansi.OFF));
        line.setExecutionExceptionHandler((failure, command, parsed) -> {
            String cause = failure instanceof IOException ? "cannot read or write the file: " : "";
            command.getErr().println("orvex-usb: " + cause + Text.printable(String.valueOf(failure.getMessage())));
            return CommandLine.ExitCode.SOFTWARE;
        });
        return line;
    }

    private int execute(ParseResult line) {
        Integer helped = CommandLine.executeHelpRequest(line);
        if (helped != null) {
            return helped;
        }
        IExecutionStrategy command = new RunLast();
        return recording == null ? command.execute(line) : recording.execute(line, command);
    }

    /** The version of the native library, which is also that of the tool. */
    static final class Version implements IVersionProvider {
        @Override
        public String[] getVersion() {
            return new String[] {"orvex-usb, library version " + ofLibrary()};
        }

        /** Returns the version of the library, and loads it if it is not loaded yet. */
        static String ofLibrary() {
            int library = new ORVEXCommUSBAccess().usbGetLibVersion();
            return String.format("%d.%02d", library / 100, library % 100);
        }
    }
}
