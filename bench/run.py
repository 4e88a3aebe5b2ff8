# SPDX-License-Identifier: MIT
"""Measures the daemon against the bare stack, in pairs on one server; see scripts/bench."""

from __future__ import annotations

import argparse
import json
import mmap
import os
import subprocess
import tempfile
import time
from pathlib import Path
from statistics import median

from peers import Program, Server, Steward, daemon

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
WARM_UP = 0.5  # seconds


def floor(server: Server, tags: int, **options) -> Program:
    return Program(BUILD / "bench" / "bare-read", str(server.port), str(tags), **options)


def sample(program: Program, server: Server, seconds: float) -> dict[str, float]:
    """Processor time per pull in us, pulls per second, and peak memory in KiB."""
    time.sleep(WARM_UP)
    begin, cpu, reads = time.monotonic(), program.cpu(), server.reads()
    time.sleep(seconds)
    wall, cpu, reads = time.monotonic() - begin, program.cpu() - cpu, server.reads() - reads
    program.check_running()
    return {"us_per_pull": cpu / reads * 1e6, "pulls_per_s": reads / wall,
            "peak_kib": program.memory("VmHWM")}


def allocations(start, server: Server, tags: int) -> float:
    """Allocations per value, counted by a library that is loaded into the program."""
    with tempfile.NamedTemporaryFile() as file:
        file.truncate(8)
        counter = mmap.mmap(file.fileno(), 8)
        environment = {**os.environ, "ALLOCATIONS_FILE": file.name,
                       "LD_PRELOAD": str(BUILD / "bench" / "liballocation-counter.so")}
        count = lambda: int.from_bytes(counter[:8], "little")
        with start(env=environment):
            time.sleep(WARM_UP)
            before, reads = count(), server.reads()
            time.sleep(1)
            return (count() - before) / ((server.reads() - reads) * tags)


def compare(folder: Path, tags: int, pairs: int, seconds: float) -> dict:
    """Floor and daemon in turn on the same server process."""
    with Server(BUILD, folder, tags) as server, Steward(server.description(0)) as steward:
        run_floor = lambda **options: floor(server, tags, **options)
        run_daemon = lambda **options: daemon(BUILD, steward, **options)
        samples = []
        for _ in range(pairs):
            pair = {}
            for name, start in (("floor", run_floor), ("daemon", run_daemon)):
                with start() as program:
                    pair[name] = sample(program, server, seconds)
            samples.append(pair)
        return {"tags": tags, "pairs": samples,
                "allocations_per_value": {"floor": allocations(run_floor, server, tags),
                                          "daemon": allocations(run_daemon, server, tags)}}


def ratios(result: dict, figure: str) -> list[float]:
    return sorted(pair["daemon"][figure] / pair["floor"][figure] for pair in result["pairs"])


def medians(result: dict, side: str, figure: str) -> float:
    return median(pair[side][figure] for pair in result["pairs"])


def row(result: dict) -> list[str]:
    cpu, rate = ratios(result, "us_per_pull"), ratios(result, "pulls_per_s")
    both = lambda figure, scale, form: " / ".join(
        format(medians(result, side, figure) / scale, form) for side in ("floor", "daemon"))
    allocated = result["allocations_per_value"]
    return [f"{result['tags']:,}", both("us_per_pull", 1, ".1f"),
            f"{median(cpu):.2f} ({cpu[0]:.2f}-{cpu[-1]:.2f})",
            f"{medians(result, 'daemon', 'us_per_pull') * 1000 / result['tags']:.0f}",
            both("pulls_per_s", 1, ".0f"), f"{median(rate):.2f}", both("peak_kib", 1024, ".1f"),
            f"{allocated['floor']:.2f} / {allocated['daemon']:.2f}"]


HEAD = ["tags", "us per pull (floor / daemon)", "ratio (range)", "ns per value", "pulls per s",
        "ratio", "peak MiB", "allocations per value"]


def print_table(head: list[str], rows: list[list[str]]) -> None:
    for cells in (head, ["---"] * len(head), *rows):
        print("| " + " | ".join(cells) + " |", flush=True)


def load(folder: Path, tags: int, pull_delay: int, seconds: float) -> dict:
    """What a device costs at a usual pace."""
    with Server(BUILD, folder, tags) as server, Steward(server.description(pull_delay)) as steward:
        with daemon(BUILD, steward) as program:
            time.sleep(2)
            begin, cpu = time.monotonic(), program.cpu()
            time.sleep(seconds)
            return {"tags": tags, "pull_delay_ms": pull_delay,
                    "processor_percent": 100 * (program.cpu() - cpu) / (time.monotonic() - begin),
                    "resident_mib": program.memory("VmRSS") / 1024}


def growth(folder: Path, pulls: int) -> dict:
    """Resident memory in KiB after a hundredth of the pulls, and after all of them."""
    with Server(BUILD, folder, 10) as server, Steward(server.description(0)) as steward:
        with daemon(BUILD, steward) as program:
            resident = []
            for limit in (pulls // 100, pulls):
                while server.reads() < limit:
                    program.check_running()
                    time.sleep(0.2)
                resident.append(program.memory("VmRSS"))
            return {"pulls": pulls, "resident_kib": resident}


def fleet(folder: Path, count: int, seconds: float) -> dict:
    """Many daemons with 100 tags each, one pull a second."""
    with Server(BUILD, folder, 100) as server, \
            Steward(server.description(1000), watch=True) as steward:
        daemons = [daemon(BUILD, steward) for _ in range(count)]
        try:
            deadline = time.monotonic() + 60
            while sum(a.count > 2 for a in steward.arrivals.values()) < count:
                if time.monotonic() > deadline:
                    raise SystemExit("the fleet does not pull")
                time.sleep(0.2)
            steward.reset()
            begin, cpu = time.monotonic(), sum(d.cpu() for d in daemons)
            batches = sum(a.count for a in steward.arrivals.values())
            time.sleep(seconds)
            wall = time.monotonic() - begin
            gaps = [a.longest_gap for a in steward.arrivals.values()]
            return {"daemons": count, "seconds": wall,
                    "processor_percent": 100 * (sum(d.cpu() for d in daemons) - cpu) / wall,
                    "batches": sum(a.count for a in steward.arrivals.values()) - batches,
                    "worst_age_ms": 1000 * max(gaps), "missed": sum(gap > 2 for gap in gaps),
                    "pss_kib": [max(p := [d.memory("Pss") for d in daemons]), int(median(p))]}
        finally:
            for each in daemons:
                each.__exit__()


def plot(results: list[dict], folder: Path) -> None:
    """Two drawings of the comparison, with the table they are made from."""
    data = folder / "pairs.dat"
    data.write_text("".join(
        f"{r['tags']} {median(ratios(r, 'us_per_pull'))} "
        f"{medians(r, 'floor', 'us_per_pull') * 1000 / r['tags']} "
        f"{medians(r, 'daemon', 'us_per_pull') * 1000 / r['tags']}\n" for r in results))
    subprocess.run(["gnuplot", "-e", f"folder='{folder}'", ROOT / "bench" / "plots.gp"], check=True)


def main() -> None:
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--pairs", type=int, default=5, help="pairs per number of tags (5)")
    parser.add_argument("--seconds", type=float, default=2, help="length of a sample (2)")
    parser.add_argument("--tags", type=int, nargs="+", default=[1, 10, 100, 1000, 10000])
    parser.add_argument("--output", type=Path, default=ROOT / "build" / "bench",
                        help="folder for results.json and the plots (build/bench)")
    parser.add_argument("--fleet", type=int, help="measure so many daemons instead, for a minute")
    parser.add_argument("--growth", type=int, help="watch the memory over so many pulls instead")
    parser.add_argument("--loads", action="store_true", help="measure two usual loads instead")
    options = parser.parse_args()
    options.output.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="pullapp-bench.") as name:
        folder = Path(name)
        if options.fleet:
            kind, results = "fleet", fleet(folder, options.fleet, 60)
        elif options.growth:
            kind, results = "growth", growth(folder, options.growth)
        elif options.loads:
            kind, results = "loads", [load(folder, 1000, 100, 20), load(folder, 10000, 1000, 20)]
        else:
            kind = "pairs"
            results = [compare(folder, t, options.pairs, options.seconds) for t in options.tags]
    (options.output / f"{kind}.json").write_text(json.dumps(results, indent=1) + "\n")
    if kind == "pairs":
        print_table(HEAD, [row(result) for result in results])
        plot(results, options.output)
    else:
        print(json.dumps(results, indent=1))


if __name__ == "__main__":
    main()
