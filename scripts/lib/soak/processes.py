# SPDX-License-Identifier: MIT
"""The daemon and the OPC UA server as processes that end with this one, whatever ends it."""
from __future__ import annotations

import asyncio
import os
import random
import re
import signal
import socket
from pathlib import Path
from typing import Any

from .plant import Description
from .violation import Violation

ROOT = Path(__file__).resolve().parents[3]
SANITIZERS = {
    "ASAN_OPTIONS": "verify_asan_link_order=0",  # a preloaded library comes first
    "TSAN_OPTIONS": f"halt_on_error=1:suppressions={ROOT}/tests/tsan.supp",
}
Loop = asyncio.get_running_loop


def free_port(rng: random.Random) -> int:
    """Below those that the system gives to connections: one of them must not take it meanwhile."""
    while True:
        with socket.socket() as probe:
            port = rng.randrange(20000, 32000)
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue


class Child:
    """A process that is killed with the thread that started it."""

    def __init__(self) -> None:
        self.process: asyncio.subprocess.Process | None = None

    async def spawn(
        self, *command: str, variables: dict[str, str] | None = None, **options: Any
    ) -> asyncio.subprocess.Process:
        self.process = await asyncio.create_subprocess_exec(
            *("setpriv", "--pdeathsig", "KILL", "--", *command),
            env={**os.environ, **SANITIZERS, **(variables or {})},
            start_new_session=True,
            **options,
        )
        return self.process

    @property
    def is_running(self) -> bool:
        return self.process is not None and self.process.returncode is None

    def signal(self, number: int) -> None:
        if self.is_running:
            assert self.process
            self.process.send_signal(number)

    async def kill(self) -> None:
        self.signal(signal.SIGKILL)
        if self.process:
            await self.process.wait()


class OpcUaServer(Child):
    """The simulator, reachable at the same port however often it is started."""

    def __init__(self, program: Path, folder: Path, rng: random.Random) -> None:
        super().__init__()
        self._program = program
        self._file = folder / "plant.json"
        self._rng = rng
        self.port = free_port(rng)
        self.born = (0.0, 0.0)  # its time began between these two

    async def start(self, plant: Description) -> None:
        self._file.write_text(plant.json())
        begin = Loop().time()
        process = await self.spawn(
            str(self._program),
            f"--port={self.port}",
            f"--description={self._file}",
            f"--session-timeout={self._rng.choice((8, 15, 60))}",
            f"--channel-lifetime={self._rng.choice((10, 60, 600))}",
            stdin=asyncio.subprocess.PIPE,
            stdout=asyncio.subprocess.PIPE,
        )
        assert process.stdout
        line = await asyncio.wait_for(process.stdout.readline(), 30)
        if not line.startswith(b"listening"):
            raise RuntimeError(f"the OPC UA server does not start: {line!r}")
        self.born = (begin, Loop().time())

    def command(self, line: str) -> None:
        assert self.process and self.process.stdin
        self.process.stdin.write(line.encode() + b"\n")

    async def sessions(self) -> tuple[int, int]:
        """How many are alive, and the most that ever were since the start."""
        self.command("stats")
        assert self.process and self.process.stdout
        line = (await asyncio.wait_for(self.process.stdout.readline(), 10)).decode()
        alive, most = (re.search(rf"sessions {word} (\d+)", line) for word in ("alive", "at most"))
        assert alive and most, line
        return int(alive[1]), int(most[1])


RECORDS = re.compile(
    r"Connected to push interface|Disconnected from push interface"
    r"|Reconnecting \(reason: (auto reconnect|connecting failed)\)"
    r"|Push interface server: .*|Received error from push interface: .*"
    r"|Received invalid info: .*|Info was: .*"
    r"|Received error from push interface client: (Could not connect to server"
    r"|Cannot write (without an active connection|when already disconnecting)"
    r"|Dropping value batches because the server does not read"
    r"|Dropped \d+ value batches because the server did not read"
    r"|Write failed - socket error: '.*|Unexpected server message( type)?: .*)"
    r"|(Error: )?[A-Z][A-Z0-9_]+|Wrong type for tag: .*|UAvariant type not supported for tag: .*"
)
RECORD = re.compile(r"pullapp\[soak\] <[3-6]> [0-9a-fx]+ (.*)")
ERROR = re.compile(r"(Error: )?[A-Z][A-Z0-9_]+|(Wrong type|UAvariant type not supported) for tag: .*")


class Daemon(Child):
    """The daemon, with the records that it hands to the system log in a file."""

    def __init__(self, build: Path, folder: Path) -> None:
        super().__init__()
        self._build = build
        self._log = folder / "log"
        self._log.touch()
        self._output = (folder / "output").open("ab")
        self._read = 0
        self.last_records: list[str] = []
        self.may_end = False
        self.is_dropping = False  # batches, as its last record about them says

    async def start(self, steward_port: int) -> None:
        self.may_end = False
        variables = {
            "LD_PRELOAD": str(self._build / "tests/libdaemon-preload.so"),
            "SYSLOG_CAPTURE": str(self._log),
        }
        await self.spawn(
            str(self._build / "pullapp-opc-ua"),
            "--device-id=soak",
            "--device-key=key",
            f"--steward-port={steward_port}",
            variables=variables,
            stdin=asyncio.subprocess.DEVNULL,
            stdout=self._output,  # notes of the OPC UA stack
            stderr=self._output,
        )

    async def ended(self, limit: float) -> None:
        """Waits for an end in order."""
        assert self.process
        self.may_end = True
        try:
            status = await asyncio.wait_for(self.process.wait(), limit)
        except asyncio.TimeoutError:
            raise Violation(f"the daemon does not end within {limit:g} s") from None
        if status != 0:
            raise Violation(f"the daemon ended with status {status}")

    def check_running(self) -> None:
        if not self.is_running and not self.may_end:
            assert self.process
            raise Violation(f"the daemon ended with status {self.process.returncode}")

    # What it takes from the system

    def _status(self, key: str) -> int:
        assert self.process
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        found = re.search(rf"^{key}:\s+(\d+)", status, re.MULTILINE)
        return int(found[1]) if found else 0

    def memory(self) -> int:
        """Resident, in KiB."""
        return self._status("VmRSS")

    def cpu_time(self) -> float:
        """In seconds."""
        assert self.process
        fields = Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def threads(self) -> int:
        return self._status("Threads")

    def descriptors(self) -> int:
        assert self.process
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    # What it logs

    def check_log(self) -> None:
        """Looks at the records since the last call."""
        with self._log.open("rb") as file:
            file.seek(self._read)
            text = file.read()
        end = text.rfind(b"\n") + 1
        self._read += end
        for line in text[:end].decode(errors="replace").split("\n"):
            if line.startswith("pullapp["):  # else the rest of a record with line feeds
                self._check_record(line)

    def _check_record(self, line: str) -> None:
        self.last_records = [*self.last_records[-19:], line[:300]]
        record = RECORD.fullmatch(line)
        if record is None or not RECORDS.fullmatch(record[1]):
            raise Violation(f"strange log record: {line[:300]}")
        if " value batches because the server " in line:
            self.is_dropping = "Dropping" in line
