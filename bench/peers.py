# SPDX-License-Identifier: MIT
"""The two sides a measured daemon runs between, and what the kernel knows of a process."""

from __future__ import annotations

import json
import selectors
import signal
import socket
import subprocess
import threading
import time
from dataclasses import dataclass, field
from pathlib import Path


class Program:
    """A child process; ended with the `with` block."""

    def __init__(self, *command: str | Path, **options) -> None:
        self._process = subprocess.Popen(command, **{"stdout": subprocess.DEVNULL, **options})
        self.pid = self._process.pid

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self._process.send_signal(signal.SIGTERM)
        try:
            self._process.wait(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()

    def check_running(self) -> None:
        if self._process.poll() is not None:
            raise SystemExit(f"{self._process.args[0]} ended with {self._process.returncode}")

    def cpu(self) -> float:
        """Processor time of all threads so far, in seconds."""
        tasks = Path(f"/proc/{self.pid}/task").iterdir()
        return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e9

    def memory(self, name: str) -> int:
        """A figure of the kernel in KiB: VmRSS, VmHWM (the peak), or Pss."""
        file = "smaps_rollup" if name == "Pss" else "status"
        for line in Path(f"/proc/{self.pid}/{file}").read_text().splitlines():
            if line.startswith(name + ":"):
                return int(line.split()[1])
        raise KeyError(name)


class Server(Program):
    """The OPC UA simulator with mixed tags."""

    def __init__(self, build: Path, folder: Path, tags: int) -> None:
        description = folder / f"{tags}.json"
        super().__init__(build / "opcua-simulator", f"--tags={tags}",
                         f"--write-description={description}",
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        listening = self._process.stdout.readline()  # "listening on ADDRESS:PORT"
        self.port = int(listening.rsplit(":", 1)[1])
        self._description = json.loads(description.read_text())

    def description(self, pull_delay: int) -> bytes:
        return json.dumps({**self._description, "pullDelay": pull_delay}).encode()

    def reads(self) -> int:
        self._process.stdin.write("stats\n")
        self._process.stdin.flush()
        return int(self._process.stdout.readline().split()[1].rstrip(","))


@dataclass
class Arrivals:
    """When the batches of one connection came."""

    count: int = 0
    last: float = 0.0
    longest_gap: float = 0.0
    tail: bytes = b""

    def add(self, data: bytes) -> None:
        count = (self.tail + data).count(b"\n\n")
        self.tail = data[-1:]
        if count == 0:
            return
        now = time.monotonic()
        if self.last:
            self.longest_gap = max(self.longest_gap, now - self.last)
        self.last = now
        self.count += count


@dataclass
class Steward:
    """Logs on every daemon with one description, then only drains."""

    description: bytes
    watch: bool = False  # note the arrivals; costs a look at every byte
    arrivals: dict[int, Arrivals] = field(default_factory=dict)

    def __post_init__(self) -> None:
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=1024)
        self.port = self._listener.getsockname()[1]
        self._buffer = bytearray(1 << 20)
        self._selector = selectors.DefaultSelector()
        self._selector.register(self._listener, selectors.EVENT_READ, self._accept)
        self._ended = False
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self._ended = True
        self._thread.join()
        for key in list(self._selector.get_map().values()):
            key.fileobj.close()
        self._selector.close()

    def reset(self) -> None:
        """Forgets the gaps so far, as those of the start."""
        for arrivals in self.arrivals.values():
            arrivals.longest_gap = 0.0

    def _run(self) -> None:
        while not self._ended:
            for key, _ in self._selector.select(timeout=0.1):
                key.data(key.fileobj)

    def _accept(self, listener: socket.socket) -> None:
        connection, _ = listener.accept()
        connection.sendall(b"HELO bench\n")
        self._selector.register(connection, selectors.EVENT_READ, self._log_on)

    def _log_on(self, connection: socket.socket) -> None:
        data = connection.recv(4096)
        if b"DEVC " in data:
            connection.sendall(b"DEVC OK\n")
        elif data == b"INFO\n":
            connection.setblocking(True)
            connection.sendall(b"INFO " + self.description + b"\n")
            self.arrivals[connection.fileno()] = Arrivals()
            self._selector.modify(connection, selectors.EVENT_READ, self._drain)

    def _drain(self, connection: socket.socket) -> None:
        size = connection.recv_into(self._buffer)
        data = bytes(self._buffer[:size]) if self.watch or size < 16 else b""
        if size == 0 or data.endswith(b"EXIT\n"):
            self._selector.unregister(connection)
            connection.close()
        elif self.watch:
            self.arrivals[connection.fileno()].add(data)


def daemon(build: Path, steward: Steward, **options) -> Program:
    return Program(build / "pullapp-opc-ua", "--device-id=bench", "--device-key=key",
                   f"--steward-port={steward.port}", **options)
