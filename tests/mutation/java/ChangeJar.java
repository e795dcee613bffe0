import static org.objectweb.asm.Opcodes.*;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Collections;
import java.util.HashMap;
import java.util.Map;
import java.util.regex.Pattern;
import java.util.zip.ZipEntry;
import java.util.zip.ZipFile;
import java.util.zip.ZipOutputStream;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.Handle;
import org.objectweb.asm.Label;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Type;

/**
 * Copies a jar; the classes of a package in the copy contain all changes of conditions, sums, results and calls, each
 * switched off (see Mutants.java).
 *
 * <p>Usage: java -cp ASM:JAR ChangeJar.java JAR COPY PACKAGE/ MUTANTS_CLASS
 *
 * <p>Prints for each change, in the order of their numbers from 0, its class, its line and what is changed, separated by
 * tabs.
 */
public final class ChangeJar {
    private static final Map<Integer, Integer> OPPOSITES = new HashMap<>();
    /** Where the two sides may be equal: the jump that differs in that case. */
    private static final Map<Integer, Integer> BOUNDARIES = Map.of(
            IFLT, IFLE, IFLE, IFLT, IFGT, IFGE, IFGE, IFGT,
            IF_ICMPLT, IF_ICMPLE, IF_ICMPLE, IF_ICMPLT, IF_ICMPGT, IF_ICMPGE, IF_ICMPGE, IF_ICMPGT);
    private static final Map<Integer, Integer> OPERATORS = new HashMap<>();
    /** The flight recorder rewrites the classes of events, and does not accept changed ones. */
    private static final Pattern LEFT_ALONE = Pattern.compile("(-info|Event)[.]class$");

    static {
        both(OPPOSITES, IFEQ, IFNE, IFLT, IFGE, IFGT, IFLE, IFNULL, IFNONNULL, IF_ICMPEQ, IF_ICMPNE, IF_ICMPLT, IF_ICMPGE,
                IF_ICMPGT, IF_ICMPLE, IF_ACMPEQ, IF_ACMPNE);
        both(OPERATORS, IADD, ISUB, LADD, LSUB, IMUL, IDIV, LMUL, LDIV, IAND, IOR, ISHL, ISHR);
        OPERATORS.put(IREM, IMUL);
        OPERATORS.put(LREM, LMUL);
    }

    private static int count;

    private ChangeJar() {
    }

    private static void both(Map<Integer, Integer> map, int... pairs) {
        for (int i = 0; i < pairs.length; i += 2) {
            map.put(pairs[i], pairs[i + 1]);
            map.put(pairs[i + 1], pairs[i]);
        }
    }

    public static void main(String[] args) throws IOException {
        try (ZipFile jar = new ZipFile(args[0]); OutputStream file = Files.newOutputStream(Path.of(args[1]));
                ZipOutputStream copy = new ZipOutputStream(file)) {
            for (ZipEntry entry : Collections.list(jar.entries())) {
                try (InputStream content = jar.getInputStream(entry)) {
                    byte[] bytes = content.readAllBytes();
                    String name = entry.getName();
                    boolean changes = name.startsWith(args[2]) && name.endsWith(".class") && !LEFT_ALONE.matcher(name).find();
                    write(copy, name, changes ? changed(bytes) : bytes);
                }
            }
            write(copy, "Mutants.class", Files.readAllBytes(Path.of(args[3])));
        }
    }

    private static void write(ZipOutputStream copy, String name, byte[] bytes) throws IOException {
        copy.putNextEntry(new ZipEntry(name));
        copy.write(bytes);
        copy.closeEntry();
    }

    private static byte[] changed(byte[] bytes) {
        ClassReader reader = new ClassReader(bytes);
        ClassWriter writer = new ClassWriter(ClassWriter.COMPUTE_FRAMES);
        reader.accept(new ClassVisitor(ASM9, writer) {
            @Override
            public MethodVisitor visitMethod(int access, String name, String type, String signature, String[] thrown) {
                MethodVisitor code = super.visitMethod(access, name, type, signature, thrown);
                boolean isGenerated = (access & ACC_BRIDGE) != 0 || name.equals("<clinit>") || name.equals("$values")
                        || name.equals("values") || name.equals("valueOf");
                return isGenerated ? code : new Changes(code, reader.getClassName(), Type.getReturnType(type));
            }
        }, ClassReader.SKIP_FRAMES);
        return writer.toByteArray();
    }

    /** Adds the changes to the code of one method. */
    private static final class Changes extends MethodVisitor {
        private final String className;
        private final Type result;
        /** The compiler copies the blocks behind "finally"; the copies of a call are one change. */
        private final Map<String, Integer> calls = new HashMap<>();
        private int line;
        /** Whether the compiler has written the method for a record: equals, hashCode or toString. */
        private boolean isOfRecord;

        Changes(MethodVisitor code, String className, Type result) {
            super(ASM9, code);
            this.className = className;
            this.result = result;
        }

        @Override
        public void visitLineNumber(int number, Label start) {
            line = number;
            super.visitLineNumber(number, start);
        }

        @Override
        public void visitInvokeDynamicInsn(String name, String type, Handle maker, Object... arguments) {
            isOfRecord |= maker.getOwner().equals("java/lang/runtime/ObjectMethods");
            super.visitInvokeDynamicInsn(name, type, maker, arguments);
        }

        private int add(String what) {
            System.out.println(className + "\t" + line + "\t" + what);
            return count++;
        }

        private void choose(int number, Runnable changed, Runnable original) {
            Label otherwise = new Label();
            Label end = new Label();
            super.visitLdcInsn(number);
            super.visitMethodInsn(INVOKESTATIC, "Mutants", "isOn", "(I)Z", false);
            super.visitJumpInsn(IFEQ, otherwise);
            changed.run();
            super.visitJumpInsn(GOTO, end);
            super.visitLabel(otherwise);
            original.run();
            super.visitLabel(end);
        }

        @Override
        public void visitJumpInsn(int jump, Label target) {
            Integer opposite = OPPOSITES.get(jump);
            if (opposite == null) {
                super.visitJumpInsn(jump, target);
                return;
            }
            Runnable original = () -> super.visitJumpInsn(jump, target);
            Runnable inner = original;
            Integer boundary = BOUNDARIES.get(jump);
            if (boundary != null) {
                int number = add("the boundary of a condition");
                inner = () -> choose(number, () -> super.visitJumpInsn(boundary, target), original);
            }
            choose(add("a condition"), () -> super.visitJumpInsn(opposite, target), inner);
        }

        @Override
        public void visitInsn(int instruction) {
            if (isOfRecord) {
                super.visitInsn(instruction);
                return;
            }
            Integer operator = OPERATORS.get(instruction);
            if (operator != null) {
                choose(add("an operator"), () -> super.visitInsn(operator), () -> super.visitInsn(instruction));
                return;
            }
            if (instruction == IRETURN && result == Type.BOOLEAN_TYPE) {
                choose(add("the result"), () -> {
                    super.visitInsn(ICONST_1);
                    super.visitInsn(IXOR);
                }, () -> { });
            } else if (instruction == IRETURN) {
                choose(add("the result"), () -> {
                    super.visitInsn(ICONST_1);
                    super.visitInsn(IADD);
                }, () -> { });
            } else if (instruction == LRETURN) {
                choose(add("the result"), () -> {
                    super.visitInsn(LCONST_1);
                    super.visitInsn(LADD);
                }, () -> { });
            } else if (instruction == ARETURN) {
                choose(add("the result (null)"), () -> {
                    super.visitInsn(POP);
                    super.visitInsn(ACONST_NULL);
                    super.visitTypeInsn(CHECKCAST, result.getInternalName());
                }, () -> { });
            }
            super.visitInsn(instruction);
        }

        @Override
        public void visitMethodInsn(int how, String owner, String name, String type, boolean isInterface) {
            if (!type.endsWith(")V") || name.equals("<init>")) {
                super.visitMethodInsn(how, owner, name, type, isInterface);
                return;
            }
            int number = calls.computeIfAbsent(line + name, key -> add("no call of " + name));
            choose(number, () -> {
                Type[] arguments = Type.getArgumentTypes(type);
                for (int i = arguments.length - 1; i >= 0; i--) {
                    super.visitInsn(arguments[i].getSize() == 2 ? POP2 : POP);
                }
                if (how != INVOKESTATIC) {
                    super.visitInsn(POP);
                }
            }, () -> super.visitMethodInsn(how, owner, name, type, isInterface));
        }
    }
}
