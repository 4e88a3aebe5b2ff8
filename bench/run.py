# SPDX-License-Identifier: MIT
"""Measures the daemon between the simulators of this project, and in alternation programs that do less, on
the same server process: the bare stack (the floor), and a plain program without the daemon's duties."""
from __future__ import annotations

import argparse
import json
import mmap
import os
import re
import signal
import subprocess
import tempfile
import time
from pathlib import Path
from statistics import median

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
WARM_UP = 0.5  # seconds
PACED_SIDES = ("bare", "plain", "plain_two_threads", "daemon_one_core", "daemon")
ROWS = ((100, 1000), (100, 100), (1000, 100), (10000, 1000))  # tags and pull delay of --paced


class Program:
    """A child process; ended with the `with` block."""

    def __init__(self, *command: str | Path, **options) -> None:
        self.process = subprocess.Popen(command, **{"stdin": subprocess.PIPE, "stdout": subprocess.DEVNULL, **options})
        self.proc = Path(f"/proc/{self.process.pid}")

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def check_running(self) -> None:
        if self.process.poll() is not None:
            raise SystemExit(f"{self.process.args[0]} ended with {self.process.returncode}")

    def cpu(self) -> float:
        """Processor time of all threads so far, in seconds."""
        return sum(int((task / "schedstat").read_text().split()[0]) for task in (self.proc / "task").iterdir()) / 1e9

    def switches(self) -> int:
        """Context switches of all threads so far, voluntary or not."""
        texts = ((task / "status").read_text() for task in (self.proc / "task").iterdir())
        return sum(int(n) for text in texts for n in re.findall(r"ctxt_switches:\s+(\d+)", text))

    def calls(self, seconds: float) -> float:
        """System calls per pull, watched by strace from one Read to another."""
        with tempfile.NamedTemporaryFile("r") as trace:
            subprocess.run(["timeout", "-s", "INT", str(seconds), "strace", "-qq", "-f", "-o", trace.name,
                            "-p", str(self.process.pid)], check=False)
            calls = [line for line in trace if " resumed>" not in line]
        reads = [i for i, call in enumerate(calls) if re.match(r'\d+ +send.*"MSGF', call)]
        return (reads[-1] - reads[0]) / (len(reads) - 1) if len(reads) > 1 else 0

    def memory(self, name: str) -> int:
        """A figure of the kernel in KiB: VmRSS, VmHWM (the peak), or Pss."""
        text = (self.proc / ("smaps_rollup" if name == "Pss" else "status")).read_text()
        return int(re.search(rf"^{name}:\s+(\d+)", text, re.MULTILINE)[1])


class Peers:
    """Both simulators, with mixed tags; the daemon and the plain program get the same ones."""

    def __init__(self, folder: Path, tags: int, pull_delay: int) -> None:
        self.tags, self.pull_delay = tags, pull_delay
        self._description, self._report = folder / f"{tags}-{pull_delay}.json", folder / "report.json"
        self._server = Program(
            BUILD / "opcua-simulator", f"--tags={tags}", f"--write-description={self._description}",
            f"--pull-delay={pull_delay}", stdout=subprocess.PIPE)
        self.port = self._server.process.stdout.readline().rsplit(b":", 1)[1].decode().strip()
        self.start_steward()

    def start_steward(self, *options: str) -> None:
        """A steward that receives as fast as it can."""
        self.steward = Program(
            BUILD / "steward-simulator", f"--description={self._description}", "--view=none",
            f"--report={self._report}", *options, stdout=subprocess.PIPE)
        self.steward_port = self.steward.process.stdout.readline().rsplit(b":", 1)[1].decode().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.steward.__exit__()
        self._server.__exit__()

    def reads(self) -> int:
        self._server.process.stdin.write(b"stats\n")
        self._server.process.stdin.flush()
        return int(re.search(rb"reads (\d+)", self._server.process.stdout.readline())[1])

    def report(self) -> dict:
        """The counts of the steward, which has ended."""
        self.steward.__exit__()
        return json.loads(self._report.read_text())

    def bare(self, **options) -> Program:
        return Program(BUILD / "bench" / "bare-read", self.port, str(self.tags), str(self.pull_delay), **options)

    def plain(self, *arguments: str, **options) -> Program:
        return Program(BUILD / "bench" / "plain-read", self.port, str(self.tags), str(self.pull_delay),
                       self.steward_port, *arguments, **options)

    def plain_two_threads(self, **options) -> Program:
        return self.plain("two-threads", **options)

    def daemon(self, **options) -> Program:
        return Program(BUILD / "pullapp-opc-ua", "--device-id=0123456789AB", "--device-key=bench",
                       f"--steward-port={self.steward_port}", **options)

    def daemon_one_core(self) -> Program:
        return self.daemon(preexec_fn=lambda: os.sched_setaffinity(0, {max(os.sched_getaffinity(0))}))


def sample(program: Program, peers: Peers, seconds: float) -> dict[str, float]:
    """Processor time and switches per pull, pulls per second, and peak memory."""
    time.sleep(WARM_UP + peers.pull_delay / 1000)
    begin, cpu, switches, reads = time.monotonic(), program.cpu(), program.switches(), peers.reads()
    time.sleep(seconds)
    program.check_running()
    wall, cpu, reads = time.monotonic() - begin, program.cpu() - cpu, peers.reads() - reads
    return {"us_per_pull": cpu / reads * 1e6, "pulls_per_s": reads / wall,
            "switches": (program.switches() - switches) / reads, "peak_kib": program.memory("VmHWM")}


def compare(folder: Path, tags: int, pull_delay: int, rounds: int, seconds: float, sides: tuple[str, ...]) -> dict:
    """The programs in alternation on the same server process; medians, and the ratios of each round."""
    with Peers(folder, tags, pull_delay) as peers:
        samples = []
        for _ in range(rounds):
            samples.append({})
            for side in sides:
                with getattr(peers, side)() as program:
                    samples[-1][side] = sample(program, peers, seconds)
        result = {"tags": tags, "pull_delay_ms": pull_delay, "rounds": samples}
        for side in sides:
            result[side] = {figure: median(s[side][figure] for s in samples) for figure in samples[0][side]}
            with getattr(peers, side)() as program:
                time.sleep(WARM_UP + pull_delay / 1000)
                result[side]["calls"] = program.calls(10 * pull_delay / 1000) if pull_delay else 0
            if not pull_delay:
                result[side]["allocations"] = allocations(getattr(peers, side), peers)
            result[side]["ratios"] = sorted(
                s["daemon"]["us_per_pull"] / s[side]["us_per_pull"] for s in samples)
        return result


def allocations(start, peers: Peers) -> float:
    """Allocations per value, counted by a library that is loaded into the program."""
    with tempfile.NamedTemporaryFile() as file:
        file.truncate(8)
        counter = mmap.mmap(file.fileno(), 8)
        count = lambda: int.from_bytes(counter[:8], "little")
        library = BUILD / "bench" / "liballocation-counter.so"
        with start(env={**os.environ, "ALLOCATIONS_FILE": file.name, "LD_PRELOAD": str(library)}):
            time.sleep(WARM_UP)
            before, reads = count(), peers.reads()
            time.sleep(1)
            return (count() - before) / ((peers.reads() - reads) * peers.tags)


def growth(folder: Path, pulls: int) -> dict:
    """Resident memory in KiB after a hundredth of the pulls, and after all of them."""
    with Peers(folder, 10, 0) as peers, peers.daemon() as program:
        resident = []
        for limit in (pulls // 100, pulls):
            while peers.reads() < limit:
                program.check_running()
                time.sleep(0.2)
            resident.append(program.memory("VmRSS"))
        return {"pulls": pulls, "resident_kib": resident}


def fleet(folder: Path, count: int, seconds: float) -> dict:
    """Many daemons with 100 tags each, one pull a second."""
    with Peers(folder, 100, 1000) as peers:
        daemons = [peers.daemon() for _ in range(count)]
        try:
            begin = time.monotonic()
            while peers.reads() < 3 * count:
                if time.monotonic() > begin + 60:
                    raise SystemExit("the fleet does not pull")
                time.sleep(0.2)
            begin, cpu, reads = time.monotonic(), sum(d.cpu() for d in daemons), peers.reads()
            time.sleep(seconds)
            wall, cpu, reads = time.monotonic() - begin, sum(d.cpu() for d in daemons) - cpu, peers.reads() - reads
            pss = sorted(d.memory("Pss") for d in daemons)
            return {"daemons": count, "processor_percent": 100 * cpu / wall, "pulls_per_s": reads / wall,
                    "pss_kib": {"median": median(pss), "most": pss[-1]}, "steward": peers.report()}
        finally:
            for each in daemons:
                each.__exit__()


def starts(folder: Path, count: int) -> dict:
    """Milliseconds from the start of the daemon's process to its first batch, with both peers ready."""
    times = []
    with Peers(folder, 100, 1000) as peers:
        for _ in range(count):
            peers.steward.__exit__()
            peers.start_steward("--batches=1")
            begin = time.monotonic()
            with peers.daemon():
                peers.steward.process.wait(60)
                times.append(1000 * (time.monotonic() - begin))
    return {"starts": count, "median_ms": median(times), "range_ms": [min(times), max(times)]}


def print_table(head: list[str], rows: list[list[str]]) -> None:
    for cells in (head, ["---"] * len(head), *rows):
        print("| " + " | ".join(cells) + " |", flush=True)


def ratio(side: dict) -> str:
    return f"{median(side['ratios']):.2f} ({side['ratios'][0]:.2f}-{side['ratios'][-1]:.2f})"


def back_to_back(result: dict) -> list[str]:
    both = lambda figure, scale, form: " / ".join(
        format(result[side][figure] / scale, form) for side in ("bare", "daemon"))
    return [f"{result['tags']:,}", both("us_per_pull", 1, ".1f"), ratio(result["bare"]), both("pulls_per_s", 1, ".0f"),
            both("peak_kib", 1024, ".1f"), both("allocations", 1, ".2f")]


def paced(result: dict) -> list[str]:
    sides = [result[side] for side in PACED_SIDES]
    return [f"{result['tags']:,}, {result['pull_delay_ms']:,} ms", *(f"{side['us_per_pull']:.0f}" for side in sides),
            *(ratio(side) for side in sides[:-1]), " / ".join(f"{side['calls']:.1f}" for side in sides),
            " / ".join(f"{side['switches']:.1f}" for side in sides)]


def main() -> None:
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--rounds", type=int, default=5, help="of all sides in turn (5)")
    parser.add_argument("--seconds", type=float, help="length of a sample (2; with --paced 20 pulls at least)")
    parser.add_argument("--tags", type=int, nargs="+", default=[1, 10, 100, 1000, 10000])
    parser.add_argument("--output", type=Path, default=ROOT / "build" / "bench", help="folder for the results (build/bench)")
    kinds = parser.add_mutually_exclusive_group()
    kinds.add_argument("--paced", action="store_true", help="at usual pull delays, beside a plain program too")
    kinds.add_argument("--fleet", type=int, metavar="N", help="measure N daemons together for a minute instead")
    kinds.add_argument("--growth", type=int, metavar="N", help="watch the memory over N pulls instead")
    kinds.add_argument("--starts", type=int, metavar="N", help="time N starts instead")
    options = parser.parse_args()
    options.output.mkdir(parents=True, exist_ok=True)
    kind = next((k for k in ("paced", "fleet", "growth", "starts") if getattr(options, k)), "pairs")
    with tempfile.TemporaryDirectory(prefix="pullapp-bench.") as name:
        folder = Path(name)
        if kind == "pairs":
            results = [compare(folder, t, 0, options.rounds, options.seconds or 2, ("bare", "daemon")) for t in options.tags]
        elif kind == "paced":
            results = [compare(folder, t, delay, options.rounds, options.seconds or 20 * delay / 1000, PACED_SIDES)
                       for t, delay in ROWS]
        else:
            results = {"fleet": lambda: fleet(folder, options.fleet, 60), "growth": lambda: growth(folder, options.growth),
                       "starts": lambda: starts(folder, options.starts)}[kind]()
    (options.output / f"{kind}.json").write_text(json.dumps(results, indent=1) + "\n")
    if kind == "pairs":
        print_table(["tags", "us per pull (floor / daemon)", "ratio (range)", "pulls per s", "peak MiB",
                     "allocations per value"], [back_to_back(result) for result in results])
        plot(results, options.output)
    elif kind == "paced":
        print_table(["tags, pull delay", "bare stack, us per pull", "plain program", "with two threads",
                     "daemon on one core", "daemon",
                     "daemon to bare (range)", "to plain (range)", "to two threads (range)",
                     "to one core (range)", "system calls per pull", "switches per pull"],
                    [paced(result) for result in results])
    else:
        print(json.dumps(results, indent=1))


def plot(results: list[dict], folder: Path) -> None:
    """Two plots of the comparison, with the table they are made from."""
    (folder / "pairs.dat").write_text("".join(
        f"{r['tags']} {median(r['bare']['ratios'])} {r['bare']['us_per_pull'] * 1000 / r['tags']} "
        f"{r['daemon']['us_per_pull'] * 1000 / r['tags']}\n" for r in results))
    subprocess.run(["gnuplot", "-e", f"folder='{folder}'", ROOT / "bench" / "plots.gp"], check=True)


if __name__ == "__main__":
    main()
