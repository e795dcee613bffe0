"""What the shared library offers and needs: usage exports.py LIBRARY.

It offers the native methods of the Java class and nothing else; on Linux it needs nothing of the macOS side.
"""

import re
import subprocess
import sys

PREFIX = "Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_"
METHODS = """
usbInitialize usbRelease usbGetLibVersion
usbCreateDeviceList usbCreateDeviceList2 usbUpdateDeviceList usbReleaseDeviceList
usbGetDeviceListCount usbGetDeviceInfo usbGetChangeInfo
usbOpenDevice usbCloseDevice usbResetDevice usbRestartDevice usbResetPipe usbCancelPipeTransfer
usbWriteControlPipe usbReadControlPipe
usbWriteBulkPipe usbReadBulkPipe usbWriteBulkPipeEx usbReadBulkPipeEx
usbWriteInterruptPipe usbReadInterruptPipe usbWriteInterruptPipeEx usbReadInterruptPipeEx
usbGetDeviceDescriptor usbGetEndpointList
""".split()


def exported(library):
    """Names of the symbols that the library defines for others."""
    if sys.platform == "darwin":
        command, extra = ["nm", "-gU", library], 1  # names begin with an underscore there
    else:
        command, extra = ["nm", "-D", "--defined-only", library], 0
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    # Between the symbols of several architectures, nm has lines of other shapes.
    return {words[2][extra:] for words in map(str.split, lines) if len(words) == 3}


def needed_of_macos(library):
    """Names of I/O Kit and Core Foundation that a library for Linux asks for."""
    if sys.platform == "darwin":
        return set()
    lines = subprocess.run(["nm", "-D", "--undefined-only", library], capture_output=True, text=True, check=True).stdout
    names = {line.split()[-1] for line in lines.splitlines()}
    return {name for name in names if re.match("k?(CF|IO)[A-Z]|__CF", name)}


if __name__ == "__main__":
    found, wanted = exported(sys.argv[1]), {PREFIX + method for method in METHODS}
    for name in sorted(wanted - found):
        print(f"missing: {name}")
    for name in sorted(found - wanted):
        print(f"not to be exported: {name}")
    foreign = needed_of_macos(sys.argv[1])
    for name in sorted(foreign):
        print(f"of macOS: {name}")
    print(f"{len(found & wanted)} of {len(wanted)} native methods exported")
    sys.exit(0 if len(wanted) == 28 and found == wanted and not foreign else 1)
