import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Collections;
import java.util.HashSet;
import java.util.Set;
import java.util.zip.ZipEntry;
import java.util.zip.ZipFile;
import java.util.zip.ZipOutputStream;
import org.jacoco.core.instr.Instrumenter;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;

/**
 * Makes a copy of a jar whose classes count what is executed. The copy contains JaCoCo's runtime, so each class loader
 * that uses it leaves a file with its counts in the folder RESULTS when its virtual machine ends; see Report.java.
 *
 * <p>Usage: java -cp JACOCO Instrument.java JAR COPY RESULTS RUNTIME_JAR...
 */
public final class Instrument {
    private static final String RUNTIME = "org/jacoco/agent/rt/internal/Offline";
    private static final String OPTIONS = "org/jacoco/core/runtime/AgentOptions.class";
    private static final int STACK = 4; // in values: a long takes two

    private final Instrumenter instrumenter = new Instrumenter(Instrument::callRuntime);
    private final Set<String> written = new HashSet<>();
    private final ZipOutputStream copy;

    private Instrument(OutputStream copy) {
        this.copy = new ZipOutputStream(copy);
    }

    public static void main(String[] args) throws IOException {
        try (OutputStream file = Files.newOutputStream(Path.of(args[1]))) {
            Instrument instrument = new Instrument(file);
            instrument.add(args[0], true);
            for (int i = 3; i < args.length; ++i) {
                instrument.add(args[i], false);
            }
            instrument.write("jacoco-agent.properties", ("destfile=" + args[2] + "/").getBytes(StandardCharsets.UTF_8));
            instrument.copy.finish();
        }
    }

    /** The code with which a class gets its counts. JaCoCo's own generator names a package that Debian's does not have. */
    private static int callRuntime(long id, String name, int counts, MethodVisitor code) {
        code.visitLdcInsn(id);
        code.visitLdcInsn(name);
        code.visitLdcInsn(counts);
        code.visitMethodInsn(Opcodes.INVOKESTATIC, RUNTIME, "getProbes", "(JLjava/lang/String;I)[Z", false);
        return STACK;
    }

    /**
     * JaCoCo's options with the time at the end of each path to a file of counts. One file for all would not do: when
     * two class loaders of a virtual machine write to it at a time, the counts of one are lost.
     */
    private static byte[] withFileForEachLoader(byte[] options) {
        ClassReader reader = new ClassReader(options);
        ClassWriter writer = new ClassWriter(reader, ClassWriter.COMPUTE_MAXS);
        reader.accept(new ClassVisitor(Opcodes.ASM9, writer) {
            @Override
            public MethodVisitor visitMethod(int access, String name, String type, String generic, String[] thrown) {
                MethodVisitor code = super.visitMethod(access, name, type, generic, thrown);
                return name.equals("getDestfile") ? withTime(code) : code;
            }
        }, 0);
        return writer.toByteArray();
    }

    private static MethodVisitor withTime(MethodVisitor code) {
        return new MethodVisitor(Opcodes.ASM9, code) {
            @Override
            public void visitInsn(int instruction) {
                if (instruction == Opcodes.ARETURN) {
                    visitMethodInsn(Opcodes.INVOKESTATIC, "java/lang/System", "nanoTime", "()J", false);
                    visitMethodInsn(Opcodes.INVOKESTATIC, "java/lang/Long", "toString", "(J)Ljava/lang/String;", false);
                    visitMethodInsn(Opcodes.INVOKEVIRTUAL, "java/lang/String", "concat",
                            "(Ljava/lang/String;)Ljava/lang/String;", false);
                }
                super.visitInsn(instruction);
            }
        };
    }

    private void add(String jar, boolean isCounted) throws IOException {
        try (ZipFile file = new ZipFile(jar)) {
            for (ZipEntry entry : Collections.list(file.entries())) {
                try (InputStream content = file.getInputStream(entry)) {
                    String name = entry.getName();
                    boolean isClass = name.endsWith(".class") && !name.endsWith("module-info.class");
                    byte[] bytes = content.readAllBytes();
                    if (isCounted && isClass) {
                        bytes = instrumenter.instrument(bytes, name);
                    } else if (name.equals(OPTIONS)) {
                        bytes = withFileForEachLoader(bytes);
                    }
                    write(name, bytes);
                }
            }
        }
    }

    /** Writes an entry, unless there is one with this name. */
    private void write(String name, byte[] bytes) throws IOException {
        if (!name.endsWith("/") && written.add(name)) {
            copy.putNextEntry(new ZipEntry(name));
            copy.write(bytes);
            copy.closeEntry();
        }
    }
}
