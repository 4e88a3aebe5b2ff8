# SPDX-License-Identifier: MIT
"""The local service that the daemon reports to, and what it does wrong."""
from __future__ import annotations

import asyncio
from collections.abc import Callable
from functools import partial

from .invariants import BatchReader, Judge
from .plant import Description


class Connection(asyncio.Protocol):
    """One connection of the daemon."""

    def __init__(self, steward: Steward) -> None:
        self._steward = steward
        self.is_slow = steward.is_slow
        self._pending: asyncio.Queue[bytes] = asyncio.Queue()
        self._trickling: asyncio.Task[None] | None = None
        self.reader = BatchReader(
            partial(steward.on_line, self), partial(steward.judge.on_batch, self)
        )
        self.descriptions: list[Description] = []  # sent here, and not yet out of use
        self.transport: asyncio.Transport

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        assert isinstance(transport, asyncio.Transport)
        self.transport = transport
        self._steward.on_connected(self)

    def data_received(self, data: bytes) -> None:
        self.reader.feed(data)

    def connection_lost(self, exc: Exception | None) -> None:
        if self._trickling:
            self._trickling.cancel()
        self._steward.on_lost(self)

    def close(self, reset: bool) -> None:
        if reset:
            self.transport.abort()
        else:
            self.transport.close()

    def send(self, text: str) -> None:
        data = text.encode() + self._steward.line_end
        if self.is_slow or self._trickling:
            self._pending.put_nowait(data)
            self._trickling = self._trickling or asyncio.create_task(self._trickle())
        else:
            self.transport.write(data)

    async def _trickle(self) -> None:
        """Byte by byte, as long as the connection is slow."""
        while not self.transport.is_closing():
            data = await self._pending.get()
            while data and self.is_slow:
                self.transport.write(data[:1])
                data = data[1:]
                await asyncio.sleep(0.0005)
            self.transport.write(data)


class Steward:
    """Listens, greets, answers; `current` is the daemon's connection, if it has one."""

    def __init__(
        self,
        port: int,
        judge: Judge,
        on_fault: Callable[[str], None],
    ) -> None:
        self.port = port
        self.judge = judge
        self._on_fault = on_fault
        self._listener: asyncio.Server | None = None
        self.current: Connection | None = None
        self.description: Description
        self.refusal = ""  # sent instead of the description
        self.line_end = b"\n"
        self.is_slow = False
        self.is_silent = False  # accepts, and does not greet
        self.answer = "OK"

    async def start(self) -> None:
        self._listener = await asyncio.get_running_loop().create_server(
            lambda: Connection(self), "127.0.0.1", self.port
        )

    def stop(self, reset: bool = False) -> None:
        """Closes everything, as an end of its process does."""
        if self._listener:
            self._listener.close()
            self._listener = None
        self.close(reset)

    def close(self, reset: bool = False) -> None:
        if self.current:
            self.current.close(reset)

    def send(self, text: str) -> None:
        if self.current:
            self.current.send(text)

    def write(self, data: bytes) -> None:
        """Raw bytes."""
        if self.current:
            self.current.transport.write(data)

    def speed_up(self) -> None:
        """Ends the time in which bytes go one by one."""
        self.is_slow = False
        if self.current:
            self.current.is_slow = False

    # What comes from the daemon

    def on_connected(self, connection: Connection) -> None:
        if self.current:
            self._on_fault("a second connection to the steward")
        self.current = connection
        self.judge.on_connected()
        if not self.is_silent:
            connection.send("HELO soak")

    def on_lost(self, connection: Connection) -> None:
        if self.current is connection:
            self.current = None

    def on_line(self, connection: Connection, line: bytes) -> None:
        match line:
            case b"DEVC soak key":
                connection.send("DEVC " + self.answer)
            case b"INFO":
                self._describe(connection)
            case b"EXIT":
                connection.transport.close()
            case _ if line.startswith(b"@__nimbara_error_msg__="):
                self._take_error(line.partition(b"=")[2])
            case _:
                self._on_fault(f"strange line to the steward: {line[:200]!r}")

    def _describe(self, connection: Connection) -> None:
        connection.send("INFO " + (self.refusal or self.description.json()))
        if not self.refusal:
            connection.descriptions.append(self.description)

    def _take_error(self, value: bytes) -> None:
        size, _, text = value.partition(b",")
        if size != b"%d" % len(text) or len(text) > 255:
            self._on_fault(f"malformed error value: {value!r}")
        self.judge.on_error_text(text.decode(errors="replace"))
