package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

/** Diagnoses why a device cannot be used, and says how to fix it. */
@Command(
        name = "doctor",
        description = "Finds out why a device cannot be used and how to fix it.",
        exitCodeListHeading = "%nExit status:%n",
        exitCodeList = {"0:no problem was found", "1:a problem was found", "2:invalid command line"})
final class DoctorCommand implements Callable<Integer> {
    @Mixin
    private VendorOptions from;

    @Mixin
    private JsonOption json;

    @Override
    public Integer call() {
        List<Finding> findings = new ArrayList<>();
        Optional<List<DeviceInfo>> listed = list(findings);
        if (Session.isSimulated()) {
            findings.add(Finding.good("the bus is simulated; the bus of this machine was not checked"));
            listed.ifPresent(devices -> findings.addAll(Doctor.unopenable(devices)));
        } else {
            findings.addAll(new Doctor(Host.here(), from.vendors(), listed).findings());
        }
        boolean isGood = findings.stream().allMatch(Finding::isGood);
        if (json.isWanted()) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("good", isGood);
            fields.put("findings", findings.stream().map(DoctorCommand::fields).toList());
            JsonOption.write(fields);
        } else {
            findings.forEach(DoctorCommand::show);
        }
        return isGood ? 0 : 1;
    }

    /**
     * The devices that the library lists. Its session has ended afterwards, so it is not this process that holds a
     * device then.
     */
    private Optional<List<DeviceInfo>> list(List<Finding> findings) {
        try {
            String version = OrvexUsb.Version.ofLibrary();
            findings.add(Finding.good("native library, version " + version, LoadedFiles.ofLibrary()));
            try (Session session = new Session(from.vendors())) {
                List<DeviceInfo> devices = session.devices();
                findings.add(Finding.good("the library lists " + devices.size() + " devices and interfaces"));
                return Optional.of(devices);
            }
        } catch (UnsatisfiedLinkError e) {
            findings.add(LoadingTrouble.of(e));
        } catch (UsbFailure e) {
            findings.add(Finding.bad("the library cannot list the devices: " + e.getMessage(),
                    "for details:", "    ORVEXCOMM_DEBUG=1 orvex-usb list"));
        }
        return Optional.empty();
    }

    private static Map<String, Object> fields(Finding finding) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("good", finding.isGood());
        fields.put("text", finding.text());
        fields.put("remedy", finding.remedy());
        return fields;
    }

    private static void show(Finding finding) {
        Terminal.Look look = finding.isGood() ? Terminal.Look.GOOD : Terminal.Look.BAD;
        System.out.println(look.of(finding.isGood() ? "ok   " : "wrong") + "  " + finding.text());
        finding.remedy().forEach(line -> System.out.println("         " + line));
    }
}
