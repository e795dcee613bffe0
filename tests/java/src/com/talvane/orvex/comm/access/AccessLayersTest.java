package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.file.Path;
import java.util.HashSet;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.spi.ToolProvider;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The classes of the package use each other in one direction, as jdeps sees them in the jar. */
@Tag("memory")
@Tag("unemulated")
class AccessLayersTest {
    private static final String NAME = UsbSession.class.getPackageName().replace(".", "\\.") + "\\.(\\w+)\\S*";
    private static final Pattern USE = Pattern.compile("^\\s+" + NAME + "\\s+-> " + NAME, Pattern.MULTILINE);

    @Test
    void noClassUsesItselfThroughOthers() throws Exception {
        Map<String, Set<String>> uses = uses();
        assertTrue(uses.get("UsbDevice").contains("UsbDeviceInfo"), () -> "jdeps has found " + uses);
        Set<String> inCircles = new TreeSet<>();
        uses.keySet().stream().filter(name -> reachable(name, uses, new HashSet<>()).contains(name))
                .forEach(inCircles::add);
        assertEquals(Set.of(), inCircles);
    }

    /** Which other classes of the package each class uses; a nested class counts as its outer one. */
    private static Map<String, Set<String>> uses() throws Exception {
        Path jar = Path.of(UsbSession.class.getProtectionDomain().getCodeSource().getLocation().toURI());
        StringWriter output = new StringWriter();
        PrintWriter out = new PrintWriter(output);
        ToolProvider.findFirst("jdeps").orElseThrow()
                .run(out, out, "--multi-release", "base", "-verbose:class", "-filter:none", jar.toString());
        Map<String, Set<String>> uses = new TreeMap<>();
        for (Matcher use = USE.matcher(output.toString()); use.find();) {
            if (!use.group(1).equals(use.group(2))) {
                uses.computeIfAbsent(use.group(1), name -> new TreeSet<>()).add(use.group(2));
            }
        }
        return uses;
    }

    private static Set<String> reachable(String from, Map<String, Set<String>> uses, Set<String> found) {
        for (String next : uses.getOrDefault(from, Set.of())) {
            if (found.add(next)) {
                reachable(next, uses, found);
            }
        }
        return found;
    }
}
