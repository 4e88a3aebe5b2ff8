# SPDX-License-Identifier: MIT
"""One daemon between its server and its steward, and rounds of faults around it."""
from __future__ import annotations

import asyncio
import math
import random
import signal
from collections.abc import AsyncIterator
from contextlib import asynccontextmanager, suppress
from dataclasses import dataclass, field
from pathlib import Path

from .faults import STEWARD_DELAY, Fault, Groups
from .invariants import Judge
from .plant import Description, some_tags, whole_plant
from .processes import Daemon, OpcUaServer, free_port
from .proxy import Proxy
from .steward import Steward
from .violation import Violation, until

PLANT_SIZE = 4000
#: What a shared machine may add to each designed delay, in seconds.
SLACK = 4.0
#: Main, client and worker; the steward's address is none that has to be looked up.
MAX_THREADS = 3
#: How much the memory of a process may grow after its first rounds, in KiB: lines and texts of
#: megabytes leave buffers of their size behind, once.
MEMORY_MARGIN = 32 * 1024
WARM_UP = 5  # rounds
#: With as much waiting as a steward that does not read may cause, in KiB.
MEMORY_LIMIT = (64_000_000 >> 10) + 32 * 1024
#: How busy the daemon may be over a round: more means that it waits by looking all the time.
CPU_LIMIT = 0.25
#: Every so many rounds the server must be given the time to forget abandoned sessions, in seconds.
ROUNDS_PER_CHECK = 10
SESSION_LIMIT = 60.0
#: How long the backlog may take to fill, or to empty, in seconds.
DROP_LIMIT = 120.0
#: A Read and a disconnect that hang, in seconds.
STOP_LIMIT = 5 + 1


@dataclass
class Memory:
    """Of one process, resident, in KiB."""

    begin: int = 0
    end: int = 0
    largest: int = 0


@dataclass
class Figures:
    """What is counted; lanes add theirs up."""

    rounds: int = 0
    recoveries: dict[str, list[float]] = field(default_factory=dict)  # seconds, by fault
    memory: list[Memory] = field(default_factory=list)
    descriptors: set[int] = field(default_factory=set)
    cpu: float = 0  # largest share over a round
    threads: int = 0
    sessions: int = 0


class Lane:
    def __init__(
        self, build: Path, folder: Path, seed: str, groups: Groups, heavy_load: asyncio.Lock
    ) -> None:
        self._plan = random.Random(seed)  # apart, so that a seed always picks the same faults
        self.rng = random.Random(f"{seed}/details")
        self.heavy_load = heavy_load
        self._groups = groups
        self.figures = Figures()
        self.plant = whole_plant(PLANT_SIZE)
        self.server = OpcUaServer(build / "opcua-simulator", folder, self.rng)
        self.proxy = Proxy(free_port(self.rng), self.server.port, self.rng)
        self.failed: asyncio.Future[None] = asyncio.get_running_loop().create_future()
        self.judge = Judge(self.server, self.fail)
        self.steward = Steward(free_port(self.rng), self.judge, self.fail)
        self.daemon = Daemon(build, folder)
        self.current = "start"
        self._rounds_of_process = 0
        self._descriptors = 0
        self._is_sanitized = build.name in ("asan", "tsan")  # keeps freed memory for a while
        self._max_threads = MAX_THREADS + (build.name == "tsan")  # which has one of its own

    # What the faults use

    def now(self) -> float:
        return asyncio.get_running_loop().time()

    def some_tags(self) -> Description:
        return some_tags(self.rng, self.proxy.port)

    async def steward_connected(self) -> None:
        limit = STEWARD_DELAY + SLACK
        await until(lambda: bool(self.steward.current), limit, lambda: "no connection to the steward")

    async def dropping(self, expected: bool) -> None:
        """Waits until the daemon logs that it begins or ends to drop batches."""
        await until(
            lambda: self.daemon.is_dropping == expected,
            DROP_LIMIT,
            lambda: f"no record that it {'drops' if expected else 'dropped'} batches",
        )

    async def start_daemon(self) -> None:
        self._rounds_of_process = 0
        self.figures.memory.append(Memory())
        await self.daemon.start(self.steward.port)

    def fail(self, text: str) -> None:
        """Ends the lane, from wherever."""
        if not self.failed.done():
            self.failed.set_exception(Violation(text))

    # The whole life of a lane

    async def run(self, end: float) -> None:
        async with self._everything_running():
            tasks = [asyncio.create_task(work) for work in (self._rounds(end), self._watch())]
            try:
                await asyncio.wait([*tasks, self.failed], return_when=asyncio.FIRST_COMPLETED)
                for task in (self.failed, *tasks):
                    if task.done():
                        task.result()
            finally:
                for task in tasks:
                    task.cancel()
                await asyncio.gather(*tasks, return_exceptions=True)

    @asynccontextmanager
    async def _everything_running(self) -> AsyncIterator[None]:
        try:
            await self.server.start(self.plant)
            await self.proxy.start()
            self.steward.description = self.some_tags()
            await self.steward.start()
            await self.start_daemon()
            yield
        finally:
            await self.daemon.kill()
            await self.server.kill()
            self.proxy.stop()
            self.steward.stop()

    async def _rounds(self, end: float) -> None:
        await self.judge.fresh(self.steward.description, self.now(), SLACK)
        while self.now() < end:
            await self._round(self._pick())
            self.figures.rounds += 1
            if self.figures.rounds % ROUNDS_PER_CHECK == 0:
                await self._sessions_left(1, SESSION_LIMIT)
        await self._sessions_left(1, SESSION_LIMIT)
        await self._stop()

    async def _watch(self) -> None:
        """What must hold at every moment."""
        while True:
            await asyncio.sleep(0.25)
            self.daemon.check_log()
            self.daemon.check_running()
            with suppress(FileNotFoundError, ProcessLookupError):  # it may end in this moment
                self._check_largest(self.figures.memory[-1])
                await self._check_threads()

    def _check_largest(self, memory: Memory) -> None:
        memory.largest = max(memory.largest, self.daemon.memory())
        if memory.largest > MEMORY_LIMIT and not self._is_sanitized:
            raise Violation(f"{memory.largest} KiB of memory")

    async def _check_threads(self) -> None:
        for _ in range(3):  # a thread that was joined can be seen for a moment
            threads = self.daemon.threads()
            if threads <= self._max_threads:
                self.figures.threads = max(self.figures.threads, threads)
                return
            await asyncio.sleep(0.02)
        raise Violation(f"{threads} threads")

    # Rounds

    def _pick(self) -> list[Fault]:
        """One fault, or up to three that differ in what they affect."""
        count = min(len(self._groups), self._plan.choices((1, 2, 3), (5, 3, 1))[0])
        groups = self._plan.sample(self._groups, count)
        faults = [
            self._plan.choices(group, [fault.weight for fault in group])[0] for group in groups
        ]
        return next(([fault] for fault in faults if fault.is_alone), faults)

    async def _round(self, faults: list[Fault]) -> None:
        plans = [(f, self._duration(), self._plan.uniform(0, 2) * (len(faults) > 1)) for f in faults]
        self.current = ", ".join(f"{f.name} for {s:.1f} s" for f, s, _ in plans)
        pull_delay = self.steward.description.pull_delay / 1000
        self.judge.forget()
        begin, cpu_time = self.now(), self.daemon.cpu_time()
        await asyncio.gather(*(self._inflict(*plan) for plan in plans))
        await self._recover(faults)
        self._check_surfaced(plans, pull_delay)
        await self.judge.steady(self._plan.uniform(0.5, 2), self._pull_delay())
        self.judge.forget()
        await self._check_resources()
        self.figures.sessions = max(self.figures.sessions, (await self.server.sessions())[1])
        if not any(fault.is_work for fault in faults):
            self._check_cpu((self.daemon.cpu_time() - cpu_time) / (self.now() - begin))

    def _pull_delay(self) -> float:
        return self.steward.description.pull_delay / 1000

    def _duration(self) -> float:
        """0.1 to 10 s, the short ones as often as the long ones."""
        return math.exp(self._plan.uniform(math.log(0.1), math.log(10)))

    async def _inflict(self, fault: Fault, seconds: float, delay: float) -> None:
        await asyncio.sleep(delay)
        await fault.act(self, seconds)

    async def _recover(self, faults: list[Fault]) -> None:
        begin = self.now()
        limit = max(fault.delay for fault in faults) + self._pull_delay() + SLACK
        await self.judge.fresh(self.steward.description, begin, limit)
        for fault in faults:
            self.figures.recoveries.setdefault(fault.name, []).append(self.now() - begin)

    def _check_surfaced(self, plans: list[tuple[Fault, float, float]], pull_delay: float) -> None:
        """Alone and long enough, a fault must have been published."""
        fault, seconds, _ = plans[0]
        if len(plans) == 1 and seconds > fault.surfaces + pull_delay and not any(self.judge.errors):
            raise Violation("no error was published")

    # What must not grow

    async def _check_resources(self) -> None:
        self._rounds_of_process += 1
        self._check_memory(self.figures.memory[-1])
        descriptors = self.daemon.descriptors()
        if self._rounds_of_process == 1:
            self._descriptors = descriptors
            self.figures.descriptors.add(descriptors)
        if descriptors != self._descriptors:
            raise Violation(f"{descriptors} descriptors, {self._descriptors} at first")

    def _check_cpu(self, share: float) -> None:
        self.figures.cpu = max(self.figures.cpu, share)
        if share > CPU_LIMIT and not self._is_sanitized:
            raise Violation(f"the daemon used {share:.0%} of a processor")

    def _check_memory(self, memory: Memory) -> None:
        memory.end = self.daemon.memory()
        if self._rounds_of_process == WARM_UP:
            memory.begin = memory.end
        is_watched = self._rounds_of_process > WARM_UP and not self._is_sanitized
        if is_watched and memory.end > memory.begin + MEMORY_MARGIN:
            raise Violation(f"memory grew from {memory.begin} to {memory.end} KiB")

    async def _sessions_left(self, expected: int, limit: float) -> None:
        """Waits until so many are alive on the server."""
        self.current = "sessions"
        end = self.now() + limit
        alive = -1
        while alive != expected:
            alive, most = await self.server.sessions()
            self.figures.sessions = max(self.figures.sessions, most)
            if alive != expected and self.now() > end:
                raise Violation(f"{alive} sessions of ours alive instead of {expected}")
            await asyncio.sleep(0.2)

    async def _stop(self) -> None:
        self.current = "stop"
        self.daemon.signal(signal.SIGTERM)
        await self.daemon.ended(STOP_LIMIT + SLACK)
        await self._sessions_left(0, SLACK)
