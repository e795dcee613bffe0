package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;

/** Tells why a device cannot be used, and what to do. */
@Command(
        name = "doctor",
        description = "Finds out why a device cannot be used, and tells what mends it.",
        exitCodeListHeading = "%nExit status:%n",
        exitCodeList = {"0:nothing wrong was found", "1:something was found", "2:wrong use of the command line"})
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
            findings.add(Finding.good("the bus is simulated; that of the machine is not looked at"));
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

    /** What the library lists; its session is over afterwards, so what holds a device then is somebody else. */
    private Optional<List<DeviceInfo>> list(List<Finding> findings) {
        try {
            String version = OrvexUsb.Version.ofLibrary();
            findings.add(Finding.good("native library, version " + version, LoadedFiles.ofLibrary()));
            try (Session session = new Session(from.vendors())) {
                List<DeviceInfo> devices = session.devices();
                findings.add(Finding.good("the library lists " + devices.size() + " devices and parts of devices"));
                return Optional.of(devices);
            }
        } catch (UnsatisfiedLinkError e) {
            findings.add(LoadingTrouble.of(e));
        } catch (UsbFailure e) {
            findings.add(Finding.bad("the library cannot list the devices: " + e.getMessage(),
                    "this tells more:", "    ORVEXCOMM_DEBUG=1 orvex-usb list"));
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
