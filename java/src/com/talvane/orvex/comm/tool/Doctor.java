package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import com.talvane.orvex.comm.tool.KernelDevice.Interface;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * Compares the devices that the library lists with those that Linux shows: a difference is why a device cannot be used.
 * For macOS it checks only who may open HID devices. It does not open or claim any device.
 */
final class Doctor {
    /** The driver of an interface that a program has claimed. */
    private static final String PROGRAM = "usbfs";

    private final Host host;
    private final Vendors vendors;
    /** Empty if the library could not list the devices. */
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
                    "a virtual machine or container needs access to the USB devices of its host"));
            return;
        }
        List<KernelDevice> all = host.devices();
        List<KernelDevice> ours = all.stream().filter(device -> vendors.has(device.vendorId())).toList();
        String count = String.format("%d devices on the bus, %d of %s", all.size(), ours.size(), vendors);
        findings.add(ours.isEmpty() ? Finding.bad(count, plugIn()) : Finding.good(count));
        for (KernelDevice device : ours) {
            lookAt(device, ours);
        }
    }

    private void lookAt(KernelDevice device, List<KernelDevice> ours) {
        if (!device.isAuthorized()) {
            findings.add(Finding.bad(device.label() + ": it is not authorized, so the kernel does not use it",
                    "echo 1 | sudo tee " + device.folder().resolve("authorized")));
            return;
        }
        if (listed.isPresent() && !isListed(device, ours)) {
            findings.add(Finding.bad(device.label() + ": on the bus, but the library does not list it",
                    "unplug it and plug it in again; if that does not help, for details:",
                    "    ORVEXCOMM_DEBUG=1 orvex-usb list"));
        }
        lookAtNode(device);
        int before = findings.size();
        device.interfaces().forEach(each -> lookAt(each, device));
        if (findings.stream().skip(before).allMatch(Finding::isGood)) {
            findings.add(Finding.good(device.label() + ": no other driver and no other program holds it"));
        }
    }

    /** The kernel may show other strings than the library; then the number of devices with the same ids decides. */
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
            findings.add(Finding.bad(device.label() + ": there is no node " + device.node(), "let udev create it:",
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

    /** Whether the library would claim the interface; true if that is unknown. */
    private boolean isDriven(Interface each, KernelDevice device) {
        List<UsbDeviceInfo> lines = linesOf(device);
        return lines.isEmpty() || lines.stream().anyMatch(line -> line.isUnopenable()
                || line.kind() == UsbDeviceInfo.Kind.PIPES && line.interfaceNumber() == each.number());
    }

    private void lookAtHid(Interface each, KernelDevice device) {
        if (each.hidNodes().isEmpty()) {
            findings.add(Finding.bad(device.label() + ": no HID driver is bound to interface " + each.number(),
                    "echo -n " + each.name() + " | sudo tee /sys/bus/usb/drivers/usbhid/bind"));
        }
        each.hidNodes().forEach(node -> findings.add(host.isUsable().test(node)
                ? Finding.good(device.label() + ": " + node + " can be used")
                : refused(device, node, UdevRules.hid(device.vendorId()), "hidraw")));
    }

    /** The finding for a node that this user may not use: the fix is its group or else a rule. */
    private Finding refused(KernelDevice device, Path node, String rule, String subsystem) {
        List<String> remedy = host.groupWithAccess(node)
                .map(group -> List.of("the group " + group + " may use it; become a member and log in again:",
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
                ? Finding.bad(what + "another program", "sudo fuser -v " + device.node() + "    shows which one")
                : Finding.bad(what + String.join(", ", holders), "end that program, or make it close the device");
    }

    /** The findings for devices that the library could not open, without a diagnosis. */
    static List<Finding> unopenable(List<DeviceInfo> entries) {
        return entries.stream().map(DeviceInfo::line).filter(UsbDeviceInfo::isUnopenable)
                .map(line -> Finding.bad(Text.printable(line.manufacturer()) + ": could not be opened",
                        "end the program that uses it; unplug it and plug it in again"))
                .toList();
    }

    /** Only an open shows whether macOS allows access, except in an ssh session, where it never does. */
    private void tellHidOfMac(DeviceInfo entry) {
        findings.add(host.isRemote()
                ? Finding.bad(named(entry) + ": macOS does not let a login over ssh open a HID device",
                        "use it from a terminal on the Mac's own screen")
                : Finding.good(named(entry) + ": macOS lets the user at the Mac's screen open this HID device",
                        "if writes to it nevertheless return -109, and it acts like a keyboard:",
                        "enable Input Monitoring, in the privacy settings, for the program that starts Java"));
    }

    private void tellUnsupported(DeviceInfo entry) {
        findings.add(Finding.bad(named(entry) + ": the library does not support its class",
                "the system's driver handles it; to show its class:",
                "    orvex-usb describe " + vendors.option() + " --index " + entry.index()));
    }

    /** The lines that belong to a device, or may do so. */
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
        return "plug one in; if one is plugged in, try another cable or port, or it has another vendor id:"
                + " see orvex-usb list --all";
    }
}
