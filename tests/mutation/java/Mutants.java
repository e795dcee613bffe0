import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/**
 * Selects the change that is switched on, and records the places that a run reaches. Only for the jar of script/mutate.
 */
public final class Mutants {
    private static final int MOST = 20_000;
    private static final int ON = Integer.parseInt(System.getenv().getOrDefault("ORVEX_MUTANT", "-1"));
    private static final String VISITS = System.getenv("ORVEX_MUTANT_VISITS");
    private static final boolean[] ASKED = new boolean[MOST];

    static {
        if (VISITS != null) {
            Runtime.getRuntime().addShutdownHook(new Thread(Mutants::tellVisits));
        }
    }

    private Mutants() {
    }

    public static boolean isOn(int number) {
        ASKED[number] = true;
        return number == ON;
    }

    /** A test may run in several processes; each appends its numbers. */
    private static void tellVisits() {
        String numbers = IntStream.range(0, MOST).filter(number -> ASKED[number]).mapToObj(number -> number + "\n")
                .collect(Collectors.joining());
        try {
            Files.writeString(Path.of(VISITS), numbers, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }
}
