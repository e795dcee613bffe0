"""Prepares faults on a machine with the installed packages, and checks the diagnosis of the installed tool.

Each fault is repaired before the next. Used by installed.py.
"""

import fcntl
import grp
import os
from contextlib import contextmanager
from pathlib import Path

from checks import expect, output_of
from machine import NOBODY, as_user, hid_device, node, usb_device

CLAIM_INTERFACE = 0x8004550F  # the request of usbfs, with the number of the interface


def expect_told(said, fault, remedy):
    """doctor reports one problem, and below it the line that fixes it."""
    wrong = said.find("wrong  " + fault)
    expect(wrong >= 0 and remedy in said[wrong:], said)
    expect(said.count("wrong  ") == 1, f"more than one thing is wrong:\n{said}")


def doctor(status=1, user=None):
    command = ["orvex-usb", "doctor"]
    return output_of(*command, status=status) if user is None else as_user(user, *command, status=status)


def label(serial, product):
    return f"{serial} (6A5C:{product}): "


ECHO1, HID1 = label("ECHO0001", "1001"), label("HID00001", "3001")


def finds_nothing(_):
    """doctor finds no problem on a machine without faults."""
    said = doctor(status=0)
    expect("wrong" not in said and ECHO1 + "no other driver" in said, said)


@contextmanager
def for_root_alone(path):
    """A node with the permissions that it has without a rule."""
    before = os.stat(path)
    os.chown(path, 0, 0)
    os.chmod(path, 0o600)
    try:
        yield
    finally:
        os.chown(path, before.st_uid, before.st_gid)
        os.chmod(path, before.st_mode & 0o777)


def names_the_group(_):
    """doctor names the group to a user who is not in it."""
    said = doctor(user=NOBODY)
    for device in ECHO1, HID1:
        at = said.find(f"wrong  {device}no permission to use ")
        expect(at >= 0 and 'sudo adduser "$USER" plugdev' in said[at:], said)


def names_the_missing_rule(_):
    """doctor names the rule for udev that is missing, for a device and for the node of a HID device."""
    plugdev = grp.getgrnam("plugdev").gr_gid
    for device, told, rule in (
        (usb_device("ECHO0001"), ECHO1, 'SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", ATTR{idVendor}=="6a5c"'),
        (hid_device(), HID1, 'SUBSYSTEM=="hidraw", KERNELS=="0003:6A5C:*"'),
    ):
        with for_root_alone(node(device)):
            expect_told(doctor(user=plugdev), f"{told}no permission to use {node(device)}", f'{rule}, MODE="0660", GROUP="plugdev", TAG+="uaccess"')


def names_the_program(_):
    """doctor names the program that has a device."""
    with open(node(usb_device("ECHO0001")), "r+b", buffering=0) as device:
        fcntl.ioctl(device, CLAIM_INTERFACE, (0).to_bytes(4, "little"))
        expect_told(doctor(), f"{ECHO1}interface 0 is held by process {os.getpid()} (python3", "end that program")


def names_what_was_forbidden(_):
    """doctor names a device that is not authorized."""
    remedy = f"echo 1 | sudo tee {usb_device('ECHO0001')}/authorized"
    output_of("sh", "-c", remedy.replace("echo 1", "echo 0").replace("sudo ", ""))
    expect_told(doctor(), f"{ECHO1}it is not authorized, so the kernel does not use it", remedy)
    output_of("sh", "-c", remedy.replace("sudo ", ""))


def names_the_missing_library(_):
    """doctor names libusb when it is missing."""
    library = next(Path("/usr/lib").glob("*/libusb-1.0.so.0"))
    away = library.rename(library.with_name("away"))
    try:
        expect_told(doctor(), "the native library cannot be loaded: libusb-1.0 is missing",
                    "sudo apt-get install libusb-1.0-0")
    finally:
        away.rename(library)


def names_the_driver(_):
    """doctor names the kernel driver that holds a device, and the command that detaches it."""
    driver = Path("/sys/bus/usb/drivers/usbserial_generic")
    interface = usb_device("ECHO0001").name + ":1.0"
    Path("/sys/bus/usb-serial/drivers/generic/new_id").write_text("6a5c 1001")
    # Release the other devices with these ids. Devices that are plugged in from now on get the driver.
    for other in (path.name for path in driver.glob("*:*") if path.name != interface):
        (driver / "unbind").write_text(other)
    remedy = f"echo -n {interface} | sudo tee {driver}/unbind"
    expect_told(doctor(), f"{ECHO1}interface 0 is held by the kernel driver usbserial_generic", remedy)
    refused = output_of("orvex-usb", "echo", "--serial", "ECHO0001", status=1)
    expect("open ECHO0001: -108: " in refused, refused)
    output_of("sh", "-c", remedy.replace("sudo ", ""))
    finds_nothing(_)


FAULTS = [finds_nothing, names_the_group, names_the_missing_rule, names_the_program, names_what_was_forbidden,
          names_the_missing_library, names_the_driver]
