package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import com.talvane.orvex.comm.tool.KernelDevice.Interface;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * Holds what the library lists against what Linux shows: what does not fit is why a device cannot be used. Of macOS it
 * knows whom the system lets open HID devices. No device is opened or claimed for it.
 */
final class Doctor {
    /** The driver of an interface that a program has claimed. */
    private static final String PROGRAM = "usbfs";

    private final Host host;
    private final Vendors vendors;
    /** Empty when the library could not say. */
    private final Optional<List<DeviceInfo>> listed;
    private final List<Finding> findings = new ArrayList<>();

    Doctor(Host host, Vendors vendors, Optional<List<DeviceInfo>> listed) {
        this.host = host;
        this.vendors = vendors;
        this.listed = listed;
    }

    List<Finding> findings() {
        if (host.hasSysfs()) {
            lookAtTheBus();
        } else if (entries().isEmpty()) {
            findings.add(Finding.bad("no device of " + vendors + " is listed", plugIn()));
        } else {
            findings.addAll(unopenable(entries()));
        }
        if (host.isMac()) {
            entries().stream().filter(entry -> entry.line().isHid()).forEach(this::tellHidOfMac);
        }
        entries().stream().filter(entry -> entry.line().kind() == UsbDeviceInfo.Kind.UNSUPPORTED)
                .forEach(this::tellUnsupported);
        return findings;
    }

    private void lookAtTheBus() {
        if (!host.hasUsb()) {
            findings.add(Finding.bad("this machine has no USB bus: there is no " + host.root().resolve("sys/bus/usb"),
                    "a virtual machine or a container has to be given the USB devices of its host"));
            return;
        }
        List<KernelDevice> all = host.devices();
        List<KernelDevice> ours = all.stream().filter(device -> vendors.has(device.vendorId())).toList();
        String count = String.format("of the %d devices on the bus %d are of %s", all.size(), ours.size(), vendors);
        findings.add(ours.isEmpty() ? Finding.bad(count, plugIn()) : Finding.good(count));
        for (KernelDevice device : ours) {
            lookAt(device, ours);
        }
    }

    private void lookAt(KernelDevice device, List<KernelDevice> ours) {
        if (!device.isAuthorized()) {
            findings.add(Finding.bad(device.label() + ": the kernel was told not to use it",
                    "echo 1 | sudo tee " + device.folder().resolve("authorized")));
            return;
        }
        if (listed.isPresent() && !isListed(device, ours)) {
            findings.add(Finding.bad(device.label() + ": on the bus, but the library does not list it",
                    "pull it and plug it in again; if that does not help, this tells more:",
                    "    ORVEXCOMM_DEBUG=1 orvex-usb list"));
        }
        lookAtNode(device);
        int before = findings.size();
        device.interfaces().forEach(each -> lookAt(each, device));
        if (findings.stream().skip(before).allMatch(Finding::isGood)) {
            findings.add(Finding.good(device.label() + ": no other driver and no other program holds it"));
        }
    }

    /** Texts may look different to the kernel; then it is the number of devices with the same ids that counts. */
    private boolean isListed(KernelDevice device, List<KernelDevice> ours) {
        long same = ours.stream()
                .filter(other -> other.vendorId() == device.vendorId() && other.productId() == device.productId())
                .count();
        long entries = entries().stream().map(DeviceInfo::line)
                .filter(line -> line.family() != UsbDeviceInfo.Family.INTERFACE && hasIds(line, device))
                .count();
        return !linesOf(device).isEmpty() || entries >= same;
    }

    private void lookAtNode(KernelDevice device) {
        if (!host.exists(device.node())) {
            findings.add(Finding.bad(device.label() + ": there is no node " + device.node(), "have udev make it:",
                    "    sudo udevadm trigger --subsystem-match=usb"));
        } else if (!host.isUsable().test(device.node())) {
            findings.add(refused(device, device.node(), UdevRules.usb(device.vendorId()), "usb"));
        } else {
            findings.add(Finding.good(device.label() + ": " + device.node() + " can be used"));
        }
    }

    private void lookAt(Interface each, KernelDevice device) {
        if (each.isHid() && isDrivenAsHid(device)) {
            lookAtHid(each, device);
        } else if (isDriven(each, device) && !each.driver().isEmpty()) {
            findings.add(heldBy(each, device));
        }
    }

    private boolean isDrivenAsHid(KernelDevice device) {
        List<UsbDeviceInfo> lines = linesOf(device);
        return lines.isEmpty() || lines.stream().anyMatch(line -> line.isHid() || line.isUnopenable());
    }

    /** Whether the library would claim the interface; all of them when it is not known. */
    private boolean isDriven(Interface each, KernelDevice device) {
        List<UsbDeviceInfo> lines = linesOf(device);
        return lines.isEmpty() || lines.stream().anyMatch(line -> line.isUnopenable()
                || line.kind() == UsbDeviceInfo.Kind.PIPES && line.interfaceNumber() == each.number());
    }

    private void lookAtHid(Interface each, KernelDevice device) {
        if (each.hidNodes().isEmpty()) {
            findings.add(Finding.bad(device.label() + ": no HID driver has interface " + each.number(),
                    "echo -n " + each.name() + " | sudo tee /sys/bus/usb/drivers/usbhid/bind"));
        }
        each.hidNodes().forEach(node -> findings.add(host.isUsable().test(node)
                ? Finding.good(device.label() + ": " + node + " can be used")
                : refused(device, node, UdevRules.hid(device.vendorId()), "hidraw")));
    }

    /** A node that this user may not use: there is a group for it, or else a rule helps. */
    private Finding refused(KernelDevice device, Path node, String rule, String subsystem) {
        List<String> remedy = host.groupWithAccess(node)
                .map(group -> List.of("the group " + group + " may; become a member, and log in again:",
                        "    sudo adduser \"$USER\" " + group))
                .orElseGet(() -> UdevRules.remedy(rule, subsystem));
        return Finding.bad(device.label() + ": no permission to use " + node, remedy);
    }

    private Finding heldBy(Interface each, KernelDevice device) {
        String what = device.label() + ": interface " + each.number() + " is held by ";
        if (!each.driver().equals(PROGRAM)) {
            return Finding.bad(what + "the kernel driver " + each.driver(),
                    "echo -n " + each.name() + " | sudo tee /sys/bus/usb/drivers/" + each.driver() + "/unbind");
        }
        List<String> holders = host.holders(device.node());
        return holders.isEmpty()
                ? Finding.bad(what + "another program", "sudo fuser -v " + device.node() + "    tells which one")
                : Finding.bad(what + String.join(", ", holders), "end that program, or have it close the device");
    }

    /** Those that the library could not open, told without a look at why. */
    static List<Finding> unopenable(List<DeviceInfo> entries) {
        return entries.stream().map(DeviceInfo::line).filter(UsbDeviceInfo::isUnopenable)
                .map(line -> Finding.bad(Text.printable(line.manufacturer()) + ": could not be opened",
                        "end the program that uses it; pull it and plug it in again"))
                .toList();
    }

    /** Only an open shows whether the system allows it; that it allows none to a login over ssh is known before. */
    private void tellHidOfMac(DeviceInfo entry) {
        findings.add(host.isRemote()
                ? Finding.bad(named(entry) + ": macOS does not let a login over ssh open a HID device",
                        "use it from a terminal on the Mac's own screen")
                : Finding.good(named(entry) + ": macOS has it as a HID device, for the user at the Mac's screen",
                        "if writes to it answer -109 all the same, and it works like a keyboard:",
                        "switch on Input Monitoring, in the privacy settings, for the program that starts Java"));
    }

    private void tellUnsupported(DeviceInfo entry) {
        findings.add(Finding.bad(named(entry) + ": its class is one that the library does not drive",
                "it is left to the system's driver; this shows its class:",
                "    orvex-usb describe " + vendors.option() + " --index " + entry.index()));
    }

    /** The lines that are surely or probably those of a device. */
    private List<UsbDeviceInfo> linesOf(KernelDevice device) {
        return entries().stream().map(DeviceInfo::line)
                .filter(line -> hasIds(line, device))
                .filter(line -> line.isUnopenable() || device.serial().isEmpty()
                        || line.serial().equals(device.serial()) || line.serial().startsWith(device.serial() + "_"))
                .toList();
    }

    private static String named(DeviceInfo entry) {
        return String.format("%s (%04X:%04X)", entry.label(), entry.line().vendorId(), entry.line().productId());
    }

    private static boolean hasIds(UsbDeviceInfo line, KernelDevice device) {
        return line.vendorId() == device.vendorId() && line.productId() == device.productId();
    }

    private List<DeviceInfo> entries() {
        return listed.orElse(List.of());
    }

    private static String plugIn() {
        return "plug one in; if it is, another cable or port may help, or its vendor id is another one:"
                + " see orvex-usb list --all";
    }
}
