"""The safe Java layer for script/mutate: the classes of the package access, and the JUnit classes of that package.

The changes are made in the compiled classes of a copy of the jar, beside a copy of the tests' jar that uses it.
"""

import shutil
from dataclasses import dataclass, field
from pathlib import Path

from programs import demand

ROOT = Path.cwd()
RELEASE = ROOT / "build/release"
COPY = ROOT / "build/mutate/java"
TESTS_JAR = COPY / "tests/java/orvex-java-tests.jar"
WITHOUT = ["kernel", "newest", "programs", "shipped"]
PACKAGE = "com/talvane/orvex/comm/access/"
HERE = Path(__file__).resolve().parent
JARS = Path("/usr/share/java")


@dataclass
class Change:
    number: int
    file: str  # below the root
    line: int
    text: str  # of the line
    what: str
    state: str = "not run"
    tests: list = field(default_factory=list)  # that come by the place

    def __str__(self):
        return f"{self.file}:{self.line}: {self.text} -> {self.what}"


@dataclass(frozen=True)
class Test:
    name: str

    def command(self, scratch):
        environment = {"LD_LIBRARY_PATH": str(RELEASE / "sim/lib"), "SIMBUS_SOCKET": f"{scratch}/simbus",
                       "SIMBUS_SCENARIO": str(ROOT / "tests/java/scenario.json")}  # fmt: skip
        return ["java", "-XX:TieredStopAtLevel=1", "-XX:+UseSerialGC",
                f"-Dorvex.usb.library={RELEASE}/libUSBAccessLink_3_47.so",
                "-cp", f"{JARS}/junit-platform-console-standalone.jar:{TESTS_JAR}",
                "org.junit.platform.console.ConsoleLauncher", "--details=none", "--disable-banner",
                f"--select-class={self.name}", *(f"--exclude-tag={tag}" for tag in WITHOUT)], environment  # fmt: skip

    def __str__(self):
        return self.name


class JavaLayer:
    patience = 5  # times as long as it takes without a change, then a test counts as failed
    shortest_patience = 45  # seconds

    def changes(self):
        demand(["cmake", "--preset", "release"])
        targets = ["USBAccessLink", "sim_libusb", "sim_hidapi", "orvex_java_tests"]
        demand(["cmake", "--build", "--preset", "release", "--target", *targets])
        shutil.rmtree(COPY, ignore_errors=True)
        shutil.copytree(RELEASE / "lib", COPY / "lib")
        shutil.copytree(RELEASE / "tests/java/lib", COPY / "tests/java/lib")
        shutil.copy2(RELEASE / "tests/java/orvex-java-tests.jar", TESTS_JAR)
        demand(["javac", "-d", COPY, HERE / "java/Mutants.java"])
        jar = RELEASE / "orvex-usb-access.jar"
        listing = demand(["java", "-cp", f"{JARS}/asm.jar:{jar}", HERE / "java/ChangeJar.java", jar,
                          COPY / "orvex-usb-access.jar", PACKAGE, COPY / "Mutants.class"])  # fmt: skip
        return [change(number, *line.split("\t")) for number, line in enumerate(listing.splitlines())]

    def tests(self):
        folder = ROOT / "tests/java/src"
        names = (path.relative_to(folder).with_suffix("") for path in sorted((folder / PACKAGE).glob("*Test.java")))
        return [Test(str(name).replace("/", ".")) for name in names]


def change(number, class_name, line, what):
    file = f"java/src/{class_name.split('$')[0]}.java"
    text = (ROOT / file).read_text().splitlines()[int(line) - 1].strip() if line != "0" else "generated code"
    return Change(number, file, int(line), text, what)
