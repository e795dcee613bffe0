import java.io.File;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.jacoco.core.analysis.Analyzer;
import org.jacoco.core.analysis.CoverageBuilder;
import org.jacoco.core.analysis.IClassCoverage;
import org.jacoco.core.analysis.ICounter;
import org.jacoco.core.analysis.ILine;
import org.jacoco.core.analysis.ISourceFileCoverage;
import org.jacoco.core.tools.ExecFileLoader;

/**
 * How much of the Java classes the tests have reached, by the files in the folder RESULTS.
 *
 * <p>Usage: java -cp JACOCO Report.java JAR RESULTS
 *
 * <p>JAR contains the classes as they were before Instrument.java, with line numbers. Prints for each line of a source
 * with code its package, file and number, and how many of its instructions and branches were missed and covered.
 */
public final class Report {
    private Report() {
    }

    public static void main(String[] args) throws IOException {
        ExecFileLoader results = new ExecFileLoader();
        try (DirectoryStream<Path> files = Files.newDirectoryStream(Path.of(args[1]))) {
            for (Path file : files) {
                results.load(file.toFile());
            }
        }
        CoverageBuilder builder = new CoverageBuilder();
        new Analyzer(results.getExecutionDataStore(), builder).analyzeAll(new File(args[0]));
        List<String> changed = new ArrayList<>();
        builder.getNoMatchClasses().forEach((IClassCoverage each) -> changed.add(each.getName()));
        if (!changed.isEmpty()) {
            throw new IOException("other classes were executed than those of the jar: " + changed);
        }
        builder.getSourceFiles().forEach(Report::print);
    }

    private static void print(ISourceFileCoverage source) {
        for (int number = source.getFirstLine(); number <= source.getLastLine(); ++number) {
            ILine line = source.getLine(number);
            if (line.getStatus() != ICounter.EMPTY) {
                ICounter code = line.getInstructionCounter();
                ICounter branches = line.getBranchCounter();
                System.out.printf("%s/%s %d %d %d %d %d%n", source.getPackageName(), source.getName(), number,
                        code.getMissedCount(), code.getCoveredCount(), branches.getMissedCount(), branches.getCoveredCount());
            }
        }
    }
}
