package com.talvane.orvex.comm.tool;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import picocli.AutoComplete;
import picocli.CommandLine;
import picocli.CommandLine.Help.Ansi;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Model.OptionSpec;
import picocli.CommandLine.Model.UsageMessageSpec;

/** Writes the manual page and the shell completion of the tool, from the commands and options of its classes. */
final class Pages {
    /** Wide enough for the longest synopsis in one line. */
    private static final int WIDEST = 1000;

    private final List<String> lines = new ArrayList<>();

    private Pages() {
    }

    /**
     * Writes both files.
     *
     * @param args the file for the page, the file for the completion, the version
     */
    public static void main(String[] args) throws IOException {
        CommandLine line = OrvexUsb.commandLine().setUsageHelpAutoWidth(false).setUsageHelpWidth(WIDEST);
        write(args[0], new Pages().page(line, args[2]));
        // A running shell reads the completion, so it needs no interpreter line.
        write(args[1], AutoComplete.bash(line.getCommandName(), line).replaceFirst("^#!.*\\R", ""));
    }

    private static void write(String file, String text) throws IOException {
        Path path = Path.of(file);
        Files.createDirectories(path.getParent());
        Files.writeString(path, text);
    }

    private String page(CommandLine line, String version) {
        UsageMessageSpec usage = line.getCommandSpec().usageMessage();
        add(".TH ORVEX-USB 1 \"\" \"orvex-usb " + version + "\" \"User Commands\"");
        add(".SH NAME", "orvex-usb \\- " + escaped("access to USB tools"));
        add(".SH SYNOPSIS");
        addSynopsis(line);
        add(".SH DESCRIPTION", escaped(String.join(" ", usage.description())));
        addOptions(line.getCommandSpec());
        add(".SH COMMANDS");
        line.getSubcommands().values().forEach(this::addCommand);
        add(".SH EXIT STATUS");
        addExitStatus(usage);
        add(".SH NOTES");
        addParagraphs(usage.footer());
        return String.join("\n", lines) + "\n";
    }

    private void addCommand(CommandLine command) {
        UsageMessageSpec usage = command.getCommandSpec().usageMessage();
        add(".SS " + escaped(command.getCommandName()));
        addSynopsis(command);
        add(".PP", escaped(String.join(" ", usage.description())));
        addOptions(command.getCommandSpec());
        addParagraphs(usage.footer());
        if (!usage.exitCodeList().isEmpty()) {
            add(".PP", "Exit status:");
            addExitStatus(usage);
        }
    }

    private void addSynopsis(CommandLine command) {
        add(escaped(command.getHelp().synopsis(0).replaceAll("\\s+", " ").strip()));
    }

    /** Help is an option of every command; the page describes it once. */
    private void addOptions(CommandSpec command) {
        command.options().stream().filter(option -> command.parent() == null || !option.usageHelp())
                .forEach(this::addOption);
    }

    private void addOption(OptionSpec option) {
        String value = option.arity().max() == 0 ? "" : " \\fI" + escaped(option.paramLabel()) + "\\fR";
        add(".TP", "\\fB" + escaped(String.join("\\fR, \\fB", option.names())) + "\\fR" + value,
                escaped(String.join(" ", option.description())));
    }

    private void addExitStatus(UsageMessageSpec usage) {
        for (Map.Entry<String, String> status : usage.exitCodeList().entrySet()) {
            add(".TP", escaped(status.getKey()), escaped(status.getValue()));
        }
    }

    private void addParagraphs(String... paragraphs) {
        Arrays.stream(paragraphs).filter(text -> !text.isBlank()).forEach(text -> add(".PP", escaped(text)));
    }

    private void add(String... more) {
        lines.addAll(List.of(more));
    }

    /** Escapes the special characters of roff, except its changes of fonts. */
    private static String escaped(String text) {
        String plain = Ansi.OFF.string(text).replaceAll("\\\\(?!f[BIR])", "\\\\e").replace("-", "\\-");
        return plain.startsWith(".") || plain.startsWith("'") ? "\\&" + plain : plain;
    }
}
