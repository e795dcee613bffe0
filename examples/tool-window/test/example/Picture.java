package example;

import java.awt.Component;
import java.awt.Container;
import java.awt.Graphics2D;
import java.awt.Point;
import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import javax.imageio.IIOImage;
import javax.imageio.ImageIO;
import javax.imageio.ImageReader;
import javax.imageio.ImageTypeSpecifier;
import javax.imageio.ImageWriter;
import javax.imageio.metadata.IIOMetadata;
import javax.imageio.metadata.IIOMetadataNode;
import javax.imageio.stream.ImageInputStream;
import javax.imageio.stream.ImageOutputStream;
import javax.swing.JButton;
import javax.swing.JFrame;
import javax.swing.JList;
import javax.swing.SwingUtilities;
import javax.swing.text.JTextComponent;

/**
 * What a window looks like, and its structure: its parts in the order in which they are read, with what they say. Fonts
 * differ from machine to machine and so do pixels; the structure does not. A file has it as a text of the PNG format.
 */
record Picture(BufferedImage image, String structure) {
    private static final String FORMAT = "javax_imageio_png_1.0";
    private static final String ENTRY = "tEXtEntry";

    /** On the event dispatch thread. */
    static Picture of(JFrame window) {
        Component content = window.getContentPane();
        BufferedImage image = new BufferedImage(content.getWidth(), content.getHeight(), BufferedImage.TYPE_INT_RGB);
        Graphics2D graphics = image.createGraphics();
        content.printAll(graphics);
        graphics.dispose();
        Comparator<Component> reading = Comparator.<Component>comparingInt(part -> place(part, content).y)
                .thenComparingInt(part -> place(part, content).x);
        String structure = parts(content).stream().filter(part -> !said(part).isEmpty()).sorted(reading)
                .map(Picture::said).collect(Collectors.joining("\n"));
        return new Picture(image, structure);
    }

    private static Point place(Component part, Component content) {
        return SwingUtilities.convertPoint(part, 0, 0, content);
    }

    /** A component and all that are in it, however deep. */
    static List<Component> parts(Component component) {
        List<Component> parts = new ArrayList<>(List.of(component));
        if (component instanceof Container container) {
            for (Component child : container.getComponents()) {
                parts.addAll(parts(child));
            }
        }
        return parts;
    }

    private static String said(Component part) {
        if (part instanceof JList<?> list) {
            return "list: " + IntStream.range(0, list.getModel().getSize())
                    .mapToObj(i -> (list.isSelectedIndex(i) ? "*" : "") + list.getModel().getElementAt(i)).toList();
        } else if (part instanceof JTextComponent text) {
            return (text.isEditable() ? "line: " : "text: ") + text.getText().strip();
        }
        return part instanceof JButton button && !button.getText().isEmpty() ? "button: " + button.getText() : "";
    }

    /** How many colours it has; one that nothing was drawn on has one. */
    long colours() {
        return IntStream.range(0, image.getWidth() * image.getHeight())
                .map(i -> image.getRGB(i % image.getWidth(), i / image.getWidth())).distinct().count();
    }

    void write(Path file) throws IOException {
        IIOMetadataNode entry = new IIOMetadataNode(ENTRY);
        entry.setAttribute("keyword", "Description");
        entry.setAttribute("value", structure);
        IIOMetadataNode texts = new IIOMetadataNode("tEXt");
        texts.appendChild(entry);
        IIOMetadataNode root = new IIOMetadataNode(FORMAT);
        root.appendChild(texts);
        ImageWriter writer = ImageIO.getImageWritersByFormatName("png").next();
        IIOMetadata metadata = writer.getDefaultImageMetadata(new ImageTypeSpecifier(image), null);
        metadata.mergeTree(FORMAT, root);
        Files.deleteIfExists(file);
        try (ImageOutputStream output = ImageIO.createImageOutputStream(file.toFile())) {
            writer.setOutput(output);
            writer.write(new IIOImage(image, null, metadata));
        }
    }

    static Picture read(Path file) throws IOException {
        ImageReader reader = ImageIO.getImageReadersByFormatName("png").next();
        try (ImageInputStream input = ImageIO.createImageInputStream(file.toFile())) {
            reader.setInput(input);
            IIOMetadataNode root = (IIOMetadataNode) reader.getImageMetadata(0).getAsTree(FORMAT);
            IIOMetadataNode entry = (IIOMetadataNode) root.getElementsByTagName(ENTRY).item(0);
            return new Picture(reader.read(0), entry.getAttribute("value"));
        }
    }
}
