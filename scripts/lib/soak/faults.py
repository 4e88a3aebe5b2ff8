# SPDX-License-Identifier: MIT
"""Everything that goes wrong, and the designed delay until values flow again."""
from __future__ import annotations

import asyncio
import signal
from collections.abc import Awaitable, Callable
from dataclasses import dataclass, replace
from functools import partial
from typing import TYPE_CHECKING

from . import proxy
from .plant import STRING, Description

if TYPE_CHECKING:
    from .lane import Lane

#: A log-in that broke off is not tried again before the server must have ended its session: 16 s and
#: twice the pull delay, in steps of 10 s. A failed verification takes less: 5 + 1 + 15 s.
SERVER_DELAY = 30
#: The wait before the next connection to the steward, when a worker that hangs has been joined.
STEWARD_DELAY = 5 + 1 + 10
#: Reading a full backlog, which this end has to check as it comes.
DRAIN_LIMIT = 60
ALWAYS, NEVER = float("-inf"), float("inf")

Action = Callable[["Lane", float], Awaitable[None]]


@dataclass(frozen=True)
class Fault:
    name: str
    act: Action  # begins, lasts so many seconds, and ends with all well
    delay: float
    surfaces: float = NEVER  # seconds after which, one pull delay later, an error must be published
    weight: float = 1
    is_alone: bool = False  # no other fault at the same time
    is_work: bool = False  # for the daemon: it may use what the processor gives


# The OPC UA server


async def bad_tag(kind: str, lane: Lane, seconds: float) -> None:
    tag = lane.steward.description.tags[-1]
    lane.server.command(f"fault {kind} {tag.address} {seconds:.3f}")
    await asyncio.sleep(seconds)


async def long_text(lane: Lane, seconds: float) -> None:
    """A megabyte where a text may be as long as it wants: no fault of the tag, but much to carry."""
    texts = (tag for tag in lane.steward.description.tags if tag.kind is STRING and not tag.max_length)
    lane.server.command(f"fault long-text {next(texts).address} {seconds:.3f}")
    await asyncio.sleep(seconds)


async def silent(lane: Lane, seconds: float) -> None:
    lane.server.command(f"silence {seconds:.3f}")
    await asyncio.sleep(seconds)


async def frozen(lane: Lane, seconds: float) -> None:
    lane.server.signal(signal.SIGSTOP)
    await asyncio.sleep(seconds)
    lane.server.signal(signal.SIGCONT)


async def killed(lane: Lane, seconds: float) -> None:
    await lane.server.kill()
    await asyncio.sleep(seconds)
    await lane.server.start(lane.plant)


async def restarted(lane: Lane, seconds: float) -> None:
    lane.server.signal(signal.SIGTERM)
    await asyncio.sleep(seconds)
    await killed(lane, 0)


async def changed_plant(plant: Callable[[Lane], Description], lane: Lane, seconds: float) -> None:
    """Another configuration for a while."""
    await lane.server.kill()
    await lane.server.start(plant(lane))
    await asyncio.sleep(seconds)
    await killed(lane, 0)


def other_types(lane: Lane) -> Description:
    """Each tag has the type that the daemon expects of the next one."""
    return replace(lane.plant, tags=tuple(replace(tag, shift=1) for tag in lane.plant.tags))


def tag_gone(lane: Lane) -> Description:
    """Another stands in its place: the values of all others stay what they are."""
    gone = lane.steward.description.tags[0].index
    tags = list(lane.plant.tags)
    tags[gone] = replace(tags[gone], index=len(tags))
    return replace(lane.plant, tags=tuple(tags))


TAG_FAULTS = ("bad-status", "no-value", "other-type", "null-string", "array")
SERVER = (
    *(Fault(f"tag: {kind}", partial(bad_tag, kind), SERVER_DELAY, 0.5) for kind in TAG_FAULTS),
    Fault("tag: long-text", long_text, SERVER_DELAY),
    Fault("server silent", silent, SERVER_DELAY, 6),
    Fault("server frozen", frozen, SERVER_DELAY, 6),
    Fault("server killed", killed, SERVER_DELAY, ALWAYS),
    Fault("server restarted", restarted, SERVER_DELAY, ALWAYS),
    Fault("server: other types", partial(changed_plant, other_types), SERVER_DELAY, ALWAYS),
    Fault("server: tag gone", partial(changed_plant, tag_gone), SERVER_DELAY, ALWAYS),
)


# The way to it


async def bad_way(kind: str, lane: Lane, seconds: float) -> None:
    lane.judge.tolerates_changes |= kind == "change"
    async with lane.proxy.faulty(kind):
        await asyncio.sleep(seconds)


SURFACES = {
    **dict.fromkeys(("cut", "reset", "refuse", "garbage"), ALWAYS),
    **dict.fromkeys(("drop", "half", "echo"), 0.5),
}
WAY = tuple(
    Fault(f"way: {kind}", partial(bad_way, kind), SERVER_DELAY, SURFACES.get(kind, NEVER))
    for kind in proxy.FAULTS
)


# The steward


async def closes(lane: Lane, seconds: float) -> None:
    lane.steward.close()
    await asyncio.sleep(seconds)


async def resets(lane: Lane, seconds: float) -> None:
    lane.steward.close(reset=True)
    await asyncio.sleep(seconds)


async def breaks_off(lane: Lane, seconds: float) -> None:
    """In the middle of a line."""
    lane.steward.write(b"INFO {")
    await closes(lane, seconds)


async def is_down(lane: Lane, seconds: float) -> None:
    lane.steward.stop(reset=lane.rng.random() < 0.5)
    await asyncio.sleep(seconds)
    await lane.steward.start()


async def stops_reading(lane: Lane, seconds: float) -> None:
    connection = lane.steward.current
    assert connection
    connection.transport.pause_reading()
    await asyncio.sleep(seconds)
    connection.transport.resume_reading()


async def overflows(lane: Lane, seconds: float) -> None:
    """Stops reading, with many tags read as fast as they can be, until the daemon drops batches."""
    async with lane.heavy_load:
        await change(lane, replace(lane.plant, port=lane.proxy.port))
        await lane.judge.using(lane.steward.description, 5)
        connection = lane.steward.current
        assert connection
        connection.transport.pause_reading()
        await lane.dropping(True)
        await asyncio.sleep(seconds)
        if lane.rng.random() < 0.3:
            lane.steward.close(reset=True)
        else:
            connection.transport.resume_reading()
        await change(lane, lane.some_tags())
        await lane.dropping(False)
        await lane.judge.using(lane.steward.description, DRAIN_LIMIT)


async def log_on_anew(lane: Lane) -> None:
    lane.steward.close()
    await asyncio.sleep(1)
    await lane.steward_connected()


async def is_slow(lane: Lane, seconds: float) -> None:
    """One byte at a time."""
    lane.steward.is_slow = True
    await log_on_anew(lane)
    await asyncio.sleep(seconds)
    lane.steward.speed_up()


async def ends_lines_badly(lane: Lane, seconds: float) -> None:
    """With a carriage return: the daemon takes a log-on that is accepted so for a refusal."""
    lane.steward.line_end = b"\r\n"
    lane.steward.send("IFCH")
    await log_on_anew(lane)
    await asyncio.sleep(seconds)
    lane.steward.line_end = b"\n"
    lane.steward.close()


async def refuses_log_on(lane: Lane, seconds: float) -> None:
    lane.steward.answer = "NO"
    await log_on_anew(lane)
    await asyncio.sleep(seconds)
    lane.steward.answer = "OK"
    lane.steward.close()


async def greets_late(lane: Lane, seconds: float) -> None:
    lane.steward.is_silent = True
    await log_on_anew(lane)
    await asyncio.sleep(seconds)
    lane.steward.is_silent = False
    lane.steward.send("HELO soak")


async def long_line(lane: Lane, seconds: float) -> None:
    lane.steward.write(b"RTCH " + b"1" * 4_000_000 + b"\n")
    await asyncio.sleep(seconds)


async def many_lines(lane: Lane, seconds: float) -> None:
    lane.steward.write(b"RTCH 1\nTOOF too often\nwhat\nWHAT is it\n\nEROR some\n" * 1000)
    await asyncio.sleep(seconds)


async def changes_often(lane: Lane, seconds: float) -> None:
    """A flood of announced changes, each of them asked for."""
    for _ in range(100):
        lane.steward.description = lane.some_tags()
        lane.steward.send("IFCH")
        await asyncio.sleep(seconds / 100)


async def change(lane: Lane, description: Description) -> None:
    lane.steward.description = description
    lane.steward.send("IFCH")


async def changes(lane: Lane, seconds: float) -> None:
    await change(lane, lane.some_tags())
    await asyncio.sleep(seconds)


async def is_refused(lane: Lane, seconds: float) -> None:
    """A description that the daemon refuses: it ends, and its service manager starts it again."""
    lane.steward.refusal = '{"id":"soak"}'
    lane.steward.send("IFCH")
    await lane.daemon.ended(10)
    lane.steward.refusal = ""
    await asyncio.sleep(seconds)
    await lane.start_daemon()


STEWARD = (
    Fault("steward closes", closes, STEWARD_DELAY),
    Fault("steward resets", resets, STEWARD_DELAY),
    Fault("steward breaks off", breaks_off, STEWARD_DELAY),
    Fault("steward down", is_down, STEWARD_DELAY),
    Fault("steward stops reading", stops_reading, 5),
    Fault("steward: backlog full", overflows, STEWARD_DELAY, weight=0.5, is_alone=True, is_work=True),
    Fault("steward slow", is_slow, STEWARD_DELAY),
    Fault("steward: CR LF", ends_lines_badly, STEWARD_DELAY),
    Fault("steward refuses log-on", refuses_log_on, STEWARD_DELAY),
    Fault("steward greets late", greets_late, 5),
    Fault("steward: long line", long_line, 5),
    Fault("steward: many lines", many_lines, 5, is_work=True),
    Fault("steward: flood of IFCH", changes_often, 10, is_work=True),
    Fault("steward: other tags", changes, 5),
    Fault("steward: bad description", is_refused, 5, weight=0.3, is_work=True),
)

Groups = list[list[Fault]]


def groups(text: str) -> Groups:
    """All faults whose names contain a text. Those of one group exclude each other."""
    chosen = ([fault for fault in group if text in fault.name] for group in (SERVER, WAY, STEWARD))
    return [group for group in chosen if group]
