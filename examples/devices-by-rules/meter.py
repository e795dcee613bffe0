"""Asks a meter for its name, switches its output on and measures three times."""
import usb.core

meter = usb.core.find(idVendor=0x1209, idProduct=0x7020)


def tell(line):
    meter.write(0x01, line + "\n")


def ask(line):
    tell(line)
    return bytes(meter.read(0x81, 512, timeout=2000)).decode().strip()


print(ask("*IDN?"))
print("off:", ask("MEAS?"))
tell("OUTP ON")
print("on:", *(ask("MEAS?") for _ in range(3)))
tell("OUTP OFF")
