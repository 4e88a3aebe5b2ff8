# SPDX-License-Identifier: MIT
"""What is between the daemon and the OPC UA server: a relay that can do to the bytes what cables,
switches and firewalls do."""
from __future__ import annotations

import asyncio
import random
from collections.abc import AsyncIterator
from contextlib import asynccontextmanager
from dataclasses import dataclass

Streams = tuple[asyncio.StreamReader, asyncio.StreamWriter]

FAULTS = (
    "delay",  # every piece
    "cut",  # what is connected, once
    "reset",  # what is connected, and what connects
    "refuse",  # nobody listens
    "close",  # what connects, at once
    "drop",  # everything, without a sign
    "change",  # some bytes
    "half",  # of what is sent is delivered, and then nothing
    "garbage",  # comes from the server's side
    "echo",  # everything goes back
    "trickle",  # byte by byte
)


def close(writer: asyncio.StreamWriter, reset: bool) -> None:
    if reset:
        writer.transport.abort()
    else:
        writer.close()


@dataclass(eq=False)
class Link:
    """A connection of the daemon, and the one to the server that belongs to it."""

    daemon: asyncio.StreamWriter
    server: asyncio.StreamWriter
    is_dead: bool = False  # bytes are missing: nothing that follows would make sense
    is_changed: bool = False

    def close(self, reset: bool = False) -> None:
        for writer in (self.daemon, self.server):
            close(writer, reset)


class Proxy:
    def __init__(self, port: int, server_port: int, rng: random.Random) -> None:
        self.port = port
        self._server_port = server_port
        self._rng = rng
        self._listener: asyncio.Server | None = None
        self._links: set[Link] = set()
        self._fault = ""
        self._healed = asyncio.Event()

    async def start(self) -> None:
        self._listener = await asyncio.start_server(self._accept, "127.0.0.1", self.port)

    def stop(self) -> None:
        if self._listener:
            self._listener.close()
        self._close_links(reset=True)

    @asynccontextmanager
    async def faulty(self, fault: str) -> AsyncIterator[None]:
        """Behaves badly while the context lasts."""
        self._fault = fault
        self._healed.clear()
        await self._begin()
        try:
            yield
        finally:
            self._fault = ""
            self._healed.set()
            for link in [link for link in self._links if link.is_changed]:
                link.close()
            if self._listener is None:
                await self.start()

    async def _begin(self) -> None:
        if self._fault in ("cut", "reset", "refuse"):
            self._close_links(reset=self._fault != "cut")
        if self._fault == "refuse" and self._listener:
            self._listener.close()
            self._listener = None
        if self._fault == "garbage":
            for link in self._links:
                link.daemon.write(self._rng.randbytes(100))

    def _close_links(self, reset: bool) -> None:
        for link in list(self._links):
            link.close(reset)

    async def _accept(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        if self._fault in ("close", "reset"):
            return close(writer, self._fault == "reset")
        if self._fault == "garbage":
            writer.write(self._rng.randbytes(self._rng.randint(1, 5000)))
        try:
            server = await asyncio.open_connection("127.0.0.1", self._server_port)
        except OSError:
            writer.transport.abort()
            return
        await self._serve((reader, writer), server)

    async def _serve(self, daemon: Streams, server: Streams) -> None:
        link = Link(daemon[1], server[1])
        self._links.add(link)
        try:
            async with asyncio.TaskGroup() as group:
                group.create_task(self._relay(link, daemon, server[1]))
                group.create_task(self._relay(link, server, daemon[1]))
        finally:
            self._links.discard(link)
            link.close()

    async def _relay(self, link: Link, source: Streams, target: asyncio.StreamWriter) -> None:
        try:
            while data := await source[0].read(65536):
                await self._forward(link, data, source[1], target)
        except OSError:
            pass
        link.close(reset=source[1].transport.is_closing())

    async def _forward(
        self, link: Link, data: bytes, source: asyncio.StreamWriter, target: asyncio.StreamWriter
    ) -> None:
        if link.is_dead:
            return
        match self._fault:
            case "drop":
                link.is_dead = True
                return
            case "half":
                link.is_dead = True
                data = data[: len(data) // 2]
            case "echo":
                link.is_dead = True
                target = source
            case "change":
                link.is_changed = True
                data = self._changed(data)
            case "delay":
                await self._pause(self._rng.uniform(0.05, 1.5))
            case "trickle":
                data = await self._trickle(data, target)
        target.write(data)
        await target.drain()

    def _changed(self, data: bytes) -> bytes:
        changed = bytearray(data)
        for _ in range(self._rng.choice((0, 1, 1, 5))):
            changed[self._rng.randrange(len(changed))] = self._rng.randrange(256)
        return bytes(changed)

    async def _trickle(self, data: bytes, target: asyncio.StreamWriter) -> bytes:
        """Byte by byte. @return what is left when that is over"""
        for place in range(len(data)):
            if self._healed.is_set():
                return data[place:]
            target.write(data[place : place + 1])
            await self._pause(0.002)
        return b""

    async def _pause(self, seconds: float) -> None:
        """A sleep that ends with the fault."""
        try:
            await asyncio.wait_for(self._healed.wait(), seconds)
        except asyncio.TimeoutError:
            pass
