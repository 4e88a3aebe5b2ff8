# SPDX-License-Identifier: MIT
"""What the steward must see, whatever happens to the daemon."""
from __future__ import annotations

import asyncio
from collections.abc import Callable
from typing import TYPE_CHECKING

from .plant import Description
from .processes import ERROR, OpcUaServer
from .violation import Violation, until

if TYPE_CHECKING:
    from .steward import Connection

#: Longest time from the Read to the steward, on a machine that does other things too, in seconds.
AGE_LIMIT = 2.0
#: How much the moments of two clocks may seem to differ, in seconds.
CLOCK_TOLERANCE = 0.1


class BatchReader:
    """Cuts what the daemon sends into batches and other lines."""

    def __init__(
        self, on_line: Callable[[bytes], None], on_batch: Callable[[bytes], None]
    ) -> None:
        self._on_line = on_line
        self._on_batch = on_batch
        self._received = bytearray()

    def feed(self, data: bytes) -> None:
        self._received += data
        begin = 0
        while begin < len(self._received):
            is_batch = self._received[begin : begin + 1].isdigit()
            end = self._received.find(b"\n\n" if is_batch else b"\n", begin)
            if end < 0:
                break
            text = bytes(self._received[begin : end + 1])
            begin = end + (2 if is_batch else 1)
            if is_batch:
                self._on_batch(text)
            else:
                self._on_line(text[:-1])
        del self._received[:begin]


class Judge:
    """Looks at every batch and error text; knows how old the newest values are."""

    def __init__(self, server: OpcUaServer, fail: Callable[[str], None]) -> None:
        self._server = server
        self._fail = fail
        self.batches = 0
        self.values = 0
        self.tolerates_changes = False  # bytes are being changed on the way: values can be anything
        self.errors: list[str] = []  # published since the last call of `forget`
        self._must_clear = False
        self._description: Description | None = None  # of the last batch
        self._newest = 0.0  # when the newest values were read
        self._arrival = 0.0
        self._last = (0.0, 0.0)  # birth of the server, and when its last values were read

    # What the daemon sends

    def on_batch(self, connection: Connection, batch: bytes) -> None:
        if self._must_clear:
            self._fail("no error text after a batch")
        self._must_clear = True
        for place, description in enumerate(connection.descriptions):
            if values := description.values(batch):
                del connection.descriptions[:place]
                return self._on_values(description, values)
        self._fail(f"not a batch of the description: {batch[:1000]!r}")

    def on_error_text(self, text: str) -> None:
        if self._must_clear and text:
            self._fail(f"error '{text}' where the last one should be cleared")
        if text and not ERROR.fullmatch(text) and not self.tolerates_changes:
            self._fail(f"strange error text '{text}'")
        self._must_clear = False
        if not self.errors or self.errors[-1] != text:
            self.errors.append(text)

    def on_connected(self) -> None:
        self._must_clear = False

    def _on_values(self, description: Description, values: list[bytes]) -> None:
        self._description = description
        self.batches += 1
        self.values += len(values)
        moment = description.moment(values)
        if misfit := description.misfit(values, moment):
            if not self.tolerates_changes:
                self._fail(f"value of another tag or time: {misfit}")
            return
        now = asyncio.get_running_loop().time()
        read = self._server.born[0] + moment
        if read > now + CLOCK_TOLERANCE:
            return  # from a server that has been restarted since
        if read < self._last[1] and self._last[0] == self._server.born[0]:
            self._fail(f"values {self._last[1] - read:.3f} s older than those before")
        self._last = (self._server.born[0], read)
        self._newest, self._arrival = read, now

    # What must be so when all is well

    def forget(self) -> None:
        self.errors.clear()
        self.tolerates_changes = False

    async def using(self, description: Description, limit: float) -> None:
        """Waits for a batch of a description."""
        await until(
            lambda: self._description is description,
            limit,
            lambda: f"no batch of the new description; errors: {self.errors}",
        )

    async def fresh(self, description: Description, since: float, limit: float) -> None:
        """Waits for values of a description, read after a time, and for the end of the error."""

        def is_fresh() -> bool:
            return (
                self._description is description
                and self._newest >= since
                and not self._must_clear
            )

        await until(
            is_fresh,
            limit,
            lambda: f"no fresh value; errors: {self.errors}",
        )
        if self.errors and self.errors[-1]:
            raise Violation(f"error '{self.errors[-1]}' was not cleared")

    async def steady(self, seconds: float, pull_delay: float) -> None:
        """Values have to keep coming, none older than they may be."""
        loop = asyncio.get_running_loop()
        end = loop.time() + seconds
        while loop.time() < end:
            silent = loop.time() - self._arrival
            age = self._arrival - self._newest - (self._server.born[1] - self._server.born[0])
            if silent > pull_delay + AGE_LIMIT:
                raise Violation(f"no value for {silent:.1f} s; errors: {self.errors}")
            if age > AGE_LIMIT:
                raise Violation(f"value of {age:.1f} s ago")
            await asyncio.sleep(0.1)
