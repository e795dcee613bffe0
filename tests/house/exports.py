"""The shared library offers the native methods of the Java class and nothing else: usage exports.py LIBRARY."""

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
    return {line.split()[-1][extra:] for line in lines}


if __name__ == "__main__":
    found, wanted = exported(sys.argv[1]), {PREFIX + method for method in METHODS}
    for name in sorted(wanted - found):
        print(f"missing: {name}")
    for name in sorted(found - wanted):
        print(f"not to be exported: {name}")
    print(f"{len(found & wanted)} of {len(wanted)} native methods exported")
    sys.exit(0 if len(wanted) == 28 and found == wanted else 1)
