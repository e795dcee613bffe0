package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.ProcessBuilder.Redirect;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import picocli.CommandLine;
import picocli.CommandLine.Model.OptionSpec;

/** The manual page and the completion that the build makes from the tool. */
@Tag("shipped")
class PagesTest {
    private static Path beside(String name) {
        String jar = OrvexUsb.class.getProtectionDomain().getCodeSource().getLocation().getPath();
        return Path.of(jar).resolveSibling(name);
    }

    /** The options of each command, as the page has them below its heading. */
    private static List<String> told() throws Exception {
        List<String> told = new ArrayList<>();
        for (String line : Files.readAllLines(beside("man/orvex-usb.1"))) {
            if (line.startsWith(".SS ")) {
                told.add(line.substring(4));
            } else if (line.startsWith("\\fB\\-")) {
                told.add(line.replace("\\-", "-").replaceAll("\\\\fI.*|\\\\f[BR]", "").strip());
            }
        }
        return told;
    }

    private static Stream<String> options(CommandLine command) {
        return command.getCommandSpec().options().stream()
                .filter(option -> command.getParent() == null || !option.usageHelp())
                .map(OptionSpec::names)
                .map(Arrays::asList)
                .map(names -> String.join(", ", names));
    }

    @Test
    void theManualPageHasEveryCommandAndEveryOption() throws Exception {
        CommandLine tool = OrvexUsb.commandLine();
        List<String> expected = new ArrayList<>(options(tool).toList());
        tool.getSubcommands().forEach((name, command) -> {
            expected.add(name);
            expected.addAll(options(command).toList());
        });
        assertEquals(expected, told());
    }

    @Test
    void theManualPageTellsTheExitStatusAndLeavesNothingToBeFilledIn() throws Exception {
        String page = Files.readString(beside("man/orvex-usb.1"));
        assertTrue(page.contains(".SH EXIT STATUS\n.TP\n0\nsuccess\n.TP\n1\n"), page);
        assertTrue(page.contains("(default: 6A5C,6A5D)"), page);
        assertTrue(page.startsWith(".TH ORVEX-USB 1 \"\" \"orvex-usb 3.47\""), page);
        assertTrue(!page.contains("${") && !page.contains("%n") && !page.contains("@|"), page);
    }

    @Test
    void theLauncherKnowsWhichOptionsTakeNoValue() throws Exception {
        CommandLine tool = OrvexUsb.commandLine();
        Set<String> flags = Stream.concat(Stream.of(tool), tool.getSubcommands().values().stream())
                .flatMap(command -> command.getCommandSpec().options().stream())
                .filter(option -> option.arity().max() == 0)
                .flatMap(option -> Arrays.stream(option.names()))
                .collect(Collectors.toCollection(TreeSet::new));
        String launcher = Files.readString(beside("orvex-usb"));
        Matcher known = Pattern.compile("(?m)^flags='(.*)'$").matcher(launcher);
        assertTrue(known.find(), launcher);
        assertEquals(flags, new TreeSet<>(List.of(known.group(1).split(" "))));
    }

    @Test
    void theShellCompletesCommandsAndOptions() throws Exception {
        assertEquals("describe", completed("orvex-usb", "desc"));
        assertEquals("--json", completed("orvex-usb", "list", "--j"));
        assertEquals("--count", completed("orvex-usb", "bench", "--co"));
    }

    /** The completions of the last word. Bash warns that no completion is in progress. */
    private static String completed(String... words) throws Exception {
        String script = ". \"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _complete_orvex-usb;"
                + " echo ${COMPREPLY[*]}";
        String completion = beside("completion/orvex-usb").toString();
        List<String> command = new ArrayList<>(List.of("bash", "-c", script, completion));
        command.addAll(List.of(words));
        Process bash = new ProcessBuilder(command).redirectError(Redirect.DISCARD).start();
        bash.getOutputStream().close();
        String said = new String(bash.getInputStream().readAllBytes(), StandardCharsets.UTF_8).strip();
        assertTrue(bash.waitFor(60, TimeUnit.SECONDS));
        return said;
    }
}
