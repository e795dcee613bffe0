"""Runs the benchmarks in turn, round by round, and sums them up. Called by script/bench from the root of the project."""

import argparse
import csv
import json
import os
import platform
import shlex
import statistics
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

from figure import svg

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/bench"
RESULTS = BUILD / "results"
SUBJECTS = ["transfers", "frame", "lists", "hid", "flight", "log", "tail"]
ON_A_KERNEL = ["transfers", "hid", "tail"]
DEVICE_COUNTS = [1, 10, 100, 1000]
OPEN_COUNTS = [1, 10, 1000]
REPETITIONS = 5  # in each round, in random order among the others
SIZES = [64, 512, 4096, 65536, 1048576]
KINDS = ["bulk_write", "bulk_read", "interrupt_write", "interrupt_read"]
FIGURES = ["median", "p99", "p99.9", "max", "mean"]  # nanoseconds, or what the unit in the case's name says


class Parser(argparse.ArgumentParser):
    """Leaves the usage to script/bench."""

    def error(self, message):
        self.exit(2, f"bench: {message}\n")


def arguments():
    parser = Parser(add_help=False)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=0.3)
    parser.add_argument("--kernel", action="store_true")
    parser.add_argument("--peer", default="")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("subjects", nargs="*")
    given = parser.parse_args()
    offered = ON_A_KERNEL if given.kernel else SUBJECTS
    for subject in given.subjects:
        if subject not in offered:
            parser.error(f"unknown subject: {subject}" + (" (with --kernel)" if given.kernel else ""))
    if given.rounds < 1 or given.seconds <= 0:
        parser.error("--rounds and --seconds want more than nothing")
    given.subjects = given.subjects or offered
    return given


class Results:
    """figures[case][way] is a list of dictionaries of FIGURES, one a round."""

    def __init__(self):
        self.figures = defaultdict(lambda: defaultdict(list))

    def add(self, case, way, figures):
        self.figures[case][way].append(figures)

    def middle(self, case, way, figure="median"):
        rounds = self.figures[case][way]
        return statistics.median(each[figure] for each in rounds) if rounds else None

    def ratio(self, case, way, over):
        """The median of the rounds' ratios: what is common to a round falls out."""
        pairs = zip(self.figures[case][way], self.figures[case][over])
        ratios = [one["median"] / other["median"] for one, other in pairs if other["median"]]
        return statistics.median(ratios) if ratios else None

    def write(self, path):
        with open(path, "w", newline="", encoding="utf-8") as file:
            writer = csv.writer(file)
            writer.writerow(["case", "way", "round", *FIGURES])
            for case, ways in self.figures.items():
                for way, rounds in ways.items():
                    for number, figures in enumerate(rounds, 1):
                        writer.writerow([case, way, number, *(figures.get(name, "") for name in FIGURES)])


class Bus:
    """Runs commands over the simulated bus in memory, or all of them in one start of the virtual machine."""

    def __init__(self, kernel):
        self.kernel = kernel
        self.scratch = tempfile.TemporaryDirectory()

    def run(self, commands, scenario=ROOT / "bench/scenario.json", environment=None):
        """The standard output of each command."""
        return self.in_machine(commands, scenario) if self.kernel else self.in_memory(commands, scenario, environment)

    def in_memory(self, commands, scenario, environment):
        variables = {
            **os.environ,
            "LD_LIBRARY_PATH": str(BUILD / "sim/lib"),
            "SIMBUS_SCENARIO": str(scenario),
            **(environment or {}),
        }
        return [self.output(command, variables) for command in commands]

    def in_machine(self, commands, scenario):
        marker = "=== bench ==="
        script = Path(self.scratch.name) / "commands"
        lines = ["set -e"] + [f"{shlex.join(map(str, each))}\necho; echo '{marker}'" for each in commands]
        script.write_text("\n".join(lines), encoding="utf-8")
        command = [ROOT / "tests/system/vm", "--timeout", "3600", "--env",
                   f"SIMBUS_USBIP={BUILD / 'sim/usbip/simbus-usbip'}", "--",
                   ROOT / "tests/system/with-kernel-bus", scenario, "--", "sh", script]  # fmt: skip
        return self.output(command, os.environ).split(marker)[: len(commands)]

    @staticmethod
    def output(command, variables):
        done = subprocess.run(
            [str(word) for word in command], env=variables, stdin=subprocess.DEVNULL, capture_output=True, text=True,
            check=False,
        )  # fmt: skip
        if done.returncode != 0:
            sys.exit(f"failed: {shlex.join(map(str, command))}\n{done.stderr[-4000:]}")
        return done.stdout

    def scenario_of(self, count):
        """A scenario with that many devices alike."""
        path = Path(self.scratch.name) / f"{count}.json"
        endpoints = [{"address": "0x01", "behaviour": "sink"}, {"address": "0x81", "behaviour": "source"}]
        devices = [
            {"id": f"tool{n}", "bus": n // 100 + 1, "vendorId": "0x6A5C", "productId": "0x4001",
             "manufacturer": "Talvane", "product": "Bench Tool", "serial": f"TOOL{n:04}",
             "interfaces": [{"endpoints": endpoints}]}
            for n in range(count)
        ]  # fmt: skip
        path.write_text(json.dumps({"devices": devices}), encoding="utf-8")
        return path


class Bench:
    def __init__(self, given):
        self.given = given
        self.bus = Bus(given.kernel)
        self.results = Results()

    # How the programs are started, and their output read.

    def native(self, program, subject=".*"):
        return [BUILD / f"bench/bench_{program}", f"--benchmark_min_time={self.given.seconds / REPETITIONS}",
                f"--benchmark_repetitions={REPETITIONS}", "--benchmark_enable_random_interleaving=true",
                f"--benchmark_filter={subject}", "--benchmark_format=json"]  # fmt: skip

    def java(self, subject):
        peer = [self.given.peer] if self.given.peer and subject == "transfers" else []
        small = ["-XX:+UseSerialGC", "-Xmx128m"] if self.given.kernel else []
        return ["java", *small, f"-Dorvex.usb.library={BUILD / 'libUSBAccessLink_3_47.so'}",
                f"-Dorvex.bench.floor={BUILD / 'bench/libbench_floor.so'}", "-cp",
                os.pathsep.join([str(BUILD / "bench/bench.jar"), str(BUILD / "orvex-usb-access.jar"), *peer]),
                "com.talvane.orvex.bench.Bench", subject, self.given.seconds]  # fmt: skip

    def take_native(self, output, prefix="", way=None):
        repeated = defaultdict(list)
        for each in json.loads(output)["benchmarks"]:
            if each.get("error_occurred"):
                sys.exit(f"{each['name']}: {each['error_message']}")
            if each["run_type"] == "iteration":
                repeated[each["run_name"]].append(each)
        for name, runs in repeated.items():
            case, _, last = name.removesuffix("/manual_time").rpartition("/")
            case, last = (case, last) if case else (last, "library")
            figures = {each: statistics.median(run[each] for run in runs) for each in FIGURES[:3]}
            figures["mean"] = statistics.median(run["real_time"] for run in runs)
            figures["max"] = max(run["max"] for run in runs)
            self.results.add(prefix + case, way or last, figures)

    def take_java(self, output, prefix=""):
        for line in output.splitlines():
            name, *figures = line.split("\t")
            if len(figures) == len(FIGURES):
                case, _, way = name.rpartition("/")
                named = (case, way) if case and not way.isdigit() else (name, "java")
                self.results.add(prefix + named[0], named[1], dict(zip(FIGURES, map(float, figures))))

    # The subjects: one round of each.

    def transfers(self):
        native, java = self.bus.run([self.native("transfers"), self.java("transfers")])
        self.take_native(native)
        self.take_java(java)

    def frame(self):
        self.take_java(self.bus.run([self.java("frame")])[0])
        for count in OPEN_COUNTS:
            self.take_java(self.bus.run([self.java("open")], self.bus.scenario_of(count))[0])

    def lists(self):
        for count in DEVICE_COUNTS:
            native, java = self.bus.run([self.native("lists"), self.java("lines")], self.bus.scenario_of(count))
            self.take_native(native, f"{count}/")
            self.take_java(java)

    def hid(self):
        native, java = self.bus.run([self.native("hid"), self.java("hid")],
                                    environment={"SIMBUS_SOCKET": f"{self.bus.scratch.name}/socket"})
        self.take_native(native)
        self.take_java(java)
        # The only HID device there has nothing to say by itself.
        idle = self.bus.run([[BUILD / "tests/system/hididle", "5"]], ROOT / "sim/scenarios/demo.json")[0]
        for line in idle.splitlines():
            what, found, percent = line.partition(": ")
            if found:
                share = float(percent.split()[0])
                self.results.add(f"hid {what} (% of a core)", "library", {"median": share})

    def flight(self):
        self.take_java(self.bus.run([self.java("flight")])[0])

    def log(self):
        command = self.native("transfers", "bulk_write/64/library")
        self.take_native(self.bus.run([command])[0], "debug_log_off/", "library")
        self.take_native(self.bus.run([command], environment={"ORVEXCOMM_DEBUG": "1"})[0], "debug_log_on/", "library")

    def tail(self):
        """Not in rounds: once, a million."""

    def tail_once(self):
        count = 100_000 if self.given.kernel else 1_000_000
        program = BUILD / "tests/system/roundtrips"
        return self.bus.run([[program, count, threads] for threads in (1, 4)], ROOT / "sim/scenarios/demo.json")

    def run(self):
        for number in range(1, self.given.rounds + 1):
            for subject in self.given.subjects:
                if subject != "tail":
                    print(f"round {number} of {self.given.rounds}: {subject}", file=sys.stderr, flush=True)
                    getattr(self, subject)()


def number(value, digits=2):
    if value is None:
        return ""
    return f"{value:,.0f}" if value >= 1000 else f"{value:.{digits}f}".rstrip("0").rstrip(".")


def table(head, rows):
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(each if isinstance(each, str) else number(each) for each in row) + " |")
    print()


def transfers_table(results, ways):
    print("Transfers, medians in microseconds; Java's share of the floor is (java - library) / floor\n")
    rows = []
    for kind in KINDS:
        for size in SIZES:
            case = f"{kind}/{size}"
            medians = [results.middle(case, way) for way in ways]
            floor = results.middle(f"floor/{size}", "java")
            frames = [
                (java["median"] - library["median"]) / pin["median"]
                for java, library, pin in zip(results.figures[case]["java"], results.figures[case]["library"],
                                              results.figures[f"floor/{size}"]["java"])
            ]  # fmt: skip
            rows.append([
                f"{kind.replace('_', ' ')} {size:,}",
                *(None if each is None else each / 1000 for each in medians),
                results.ratio(case, "library", "asynchronous"), results.ratio(case, "library", "synchronous"),
                floor / 1000, statistics.median(frames) if frames else None,
            ])  # fmt: skip
    table(["", *ways, "library / asynchronous", "library / synchronous", "floor", "Java's share"], rows)
    print("The slow ones, microseconds: median over the rounds of p99 and p99.9, largest of all\n")
    rows = [
        [f"{kind.replace('_', ' ')} 64 {way}", *(results.middle(f"{kind}/64", way, each) / 1000 for each in FIGURES[1:3]),
         max(each["max"] for each in results.figures[f"{kind}/64"][way]) / 1000]
        for kind in KINDS for way in ways
    ]  # fmt: skip
    table(["", "p99", "p99.9", "max"], rows)


def lists_table(results):
    print("Lists, medians in microseconds\n")
    rows = []
    for count in DEVICE_COUNTS:
        plain = results.middle(f"{count}/plain_walk", "library")
        create, update = (results.middle(f"{count}/{name}", "library") for name in ("create", "update_after_change"))
        rest = [results.middle(f"{count}/{name}", "library") for name in ("update_unchanged", "every_record")]
        java = [results.middle(f"{name}/{count}", "java") for name in ("count", "one_line", "every_line")]
        rows.append([str(count), plain / 1000, create / 1000, create / plain, update / 1000, update / plain,
                     *(each / 1000 for each in (*rest, *java))])  # fmt: skip
    table(["devices", "plain walk", "create", "/ plain", "update", "/ plain", "update, no change",
           "every record by index", "Java: count", "one line", "every line"], rows)  # fmt: skip


def other_table(results, title, wanted, shown=FIGURES[:3]):
    print(title + "\n")
    rows = [
        [case, way, *(results.middle(case, way, name) if name in rounds[0] else None for name in shown)]
        for case, ways in results.figures.items() if wanted(case) for way, rounds in ways.items()
    ]  # fmt: skip
    table(["", "", *shown], rows)


def flight_table(results):
    print("Events for Java's flight recorder, nanoseconds of a bulk write of 64 bytes in the safe layer\n")
    case, first = "flight_bulk_write_64", "no_recording"
    rows = [[way.replace("_", " "), results.middle(case, way), results.ratio(case, way, first)]
            for way in results.figures[case]]  # fmt: skip
    question = results.middle("flight_question", "alone")
    table(["", "median", "/ no recording"],
          [*rows, ["the question alone", question, f"{question / results.middle(case, first):.4f}"]])  # fmt: skip


def plot(results, path):
    """A picture of the transfers; interrupt transfers take as long as bulk transfers."""
    ways = {"asynchronous": "plain libusb", "library": "library", "java": "Java"}
    path.write_text(svg({kind.replace("_", " "): {
        name: [(size, results.middle(f"{kind}/{size}", way)) for size in SIZES]
        for way, name in ways.items() if way in results.figures[f"{kind}/{SIZES[0]}"]
    } for kind in KINDS[:2]}), encoding="utf-8")  # fmt: skip


def report(bench):
    given, results = bench.given, bench.results
    RESULTS.mkdir(parents=True, exist_ok=True)
    where = "a real kernel in the virtual machine" if given.kernel else "the simulated bus in memory"
    print(f"\n{platform.machine()}, {os.cpu_count()} cores, {where}, {given.rounds} rounds\n")
    if "transfers" in given.subjects:
        ways = list(dict.fromkeys(["asynchronous", "synchronous", "library", *results.figures["bulk_write/64"]]))
        transfers_table(results, ways)
        plot(results, RESULTS / ("transfers-kernel.svg" if given.kernel else "transfers.svg"))
    if "frame" in given.subjects:
        frame = ("empty_native_call", "no_device", "hid_reset_pipe", "pin/", "hid_bulk_write/", "find_open_device/")
        other_table(results, "Calls that answer at once, nanoseconds", lambda case: case.startswith(frame))
    if "lists" in given.subjects:
        lists_table(results)
    if "hid" in given.subjects:
        other_table(results, "HID, nanoseconds", lambda case: case.startswith("hid_report") or
                    case.startswith(("hid_round_trip", "hid_late_report")), ["median", "mean", "p99"])  # fmt: skip
        other_table(results, "HID, processor time", lambda case: case.startswith("hid "), ["median"])
    if "flight" in given.subjects:
        flight_table(results)
    if "log" in given.subjects:
        other_table(results, "Debug log, nanoseconds of a bulk write", lambda case: case.startswith("debug_log"))
    if "tail" in given.subjects:
        print("Round trips\n")
        print("\n".join(line for output in bench.tail_once() for line in output.splitlines() if line))
    results.write(RESULTS / ("results-kernel.csv" if given.kernel else "results.csv"))


def main():
    given = arguments()
    if not given.check:
        bench = Bench(given)
        bench.run()
        report(bench)


if __name__ == "__main__":
    main()
