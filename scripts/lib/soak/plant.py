# SPDX-License-Identifier: MIT
"""The tags of the simulated device, what the simulator makes of them, and descriptions of them.

All values of one Read are functions of the same moment, shifted by the tag's place in the plant. An
unsigned 64-bit tag tells that moment to the millisecond: every other value of the batch has to fit.
"""
from __future__ import annotations

import json
import math
import random
import re
import struct
from collections.abc import Callable
from dataclasses import dataclass
from functools import cached_property

MILLISECOND = 0.001
ROUNDING = 1e-6
#: How many values of a batch are looked at closely; the backlog holds batches of thousands.
EXAMINED = 100

INTEGER = rb"(-?(?:0|[1-9]\d*))"
FLOATING = rb"(-?(?:nan|inf|\d[\d.e+-]*))"
BOOLEAN = rb"([tf])"
TEXT = rb"(\d+,[^\r\n]*)"  # its length is checked on its own


def ramp(middle: int) -> Callable[[float], object]:
    def value(seconds: float) -> int:
        position = math.fmod(seconds * 5, 200)
        return int((position if position < 100 else 200 - position) - middle)

    return value


def sine(seconds: float) -> float:
    return 50 + 25 * math.sin(seconds * math.pi / 15)


@dataclass(frozen=True)
class Kind:
    """A type of tags: its keys in a description, its text, and its value at a time."""

    keys: dict[str, object]
    pattern: bytes
    value: Callable[[float], object]
    bits: int = 0

    @property
    def is_floating(self) -> bool:
        return self.pattern is FLOATING

    @property
    def is_text(self) -> bool:
        return self.pattern is TEXT


def integer(signed: bool, width: int, value: Callable[[float], object]) -> Kind:
    return Kind({"type": "int", "signed": signed, "width": width}, INTEGER, value, width)


CLOCK = integer(False, 64, lambda s: int(s * 1000))
STRING = Kind({"type": "string"}, TEXT, lambda s: f"item {int(s / 2)}")
KINDS = (
    CLOCK,
    integer(True, 32, lambda s: int(-s)),
    Kind({"type": "float", "width": 32}, FLOATING, sine, 32),
    Kind({"type": "float", "width": 64}, FLOATING, sine, 64),
    Kind({"type": "bool"}, BOOLEAN, lambda s: "t" if math.fmod(s, 4) < 2 else "f"),
    STRING,
    integer(False, 32, int),
    integer(True, 64, lambda s: int(-s * 1000)),
    integer(True, 8, ramp(50)),
    integer(False, 8, ramp(0)),
    integer(True, 16, ramp(50)),
    integer(False, 16, ramp(0)),
)


@dataclass(frozen=True)
class Tag:
    """A tag of a description; `index` is its place in the plant."""

    id: int
    index: int
    max_length: int = 0  # of a text
    shift: int = 0  # another type than it has elsewhere

    @property
    def kind(self) -> Kind:
        return KINDS[(self.index + self.shift) % len(KINDS)]

    @property
    def address(self) -> str:
        return f"ns=1;i={self.index + 1}"

    def keys(self) -> dict[str, object]:
        result = {"id": self.id, "address": self.address, **self.kind.keys}
        return {**result, "maxStringLength": self.max_length} if self.max_length else result

    def is_well_formed(self, text: bytes) -> bool:
        """Whether the text, which fits the kind's pattern, is written as it should be."""
        if self.kind.is_text:
            size, _, value = text.partition(b",")
            return size == b"%d" % len(value) and len(value) <= (self.max_length or len(value))
        if self.kind.is_floating:
            return self._is_well_formed_number(text)
        if self.kind.pattern is INTEGER:
            low = -(1 << self.kind.bits - 1) if self.kind.keys["signed"] else 0
            return low <= int(text) < low + (1 << self.kind.bits)
        return True

    def _is_well_formed_number(self, text: bytes) -> bool:
        number = float(text)
        if math.isnan(number) or self.kind.bits == 64:
            return math.isnan(number) or text == b"%.18g" % number
        return text == b"%.10g" % struct.unpack("f", struct.pack("f", number))[0]

    def fits(self, text: bytes, moment: float) -> bool:
        """Whether the simulator had this value within a millisecond after the moment."""
        begin = moment + 3 * self.index
        if self.kind.is_floating:
            return abs(float(text) - sine(begin)) < 0.02
        return any(
            text == self._text(self.kind.value(seconds))
            for seconds in (begin - ROUNDING, begin + MILLISECOND / 2, begin + MILLISECOND + ROUNDING)
        ) or self._is_long_text(text)

    def _text(self, value: object) -> bytes:
        text = str(value).encode()
        if not self.kind.is_text:
            return text
        cut = text[: self.max_length or None]
        return b"%d,%s" % (len(cut), cut)

    def _is_long_text(self, text: bytes) -> bool:
        value = text.partition(b",")[2]
        return self.kind.is_text and value != b"" and not value.strip(b"x")


@dataclass(frozen=True)
class Description:
    """What the steward sends, and what the batches of the daemon have to look like then."""

    tags: tuple[Tag, ...]
    pull_delay: int = 0  # milliseconds
    port: int = 0
    device: str = "soak"

    def json(self) -> str:
        return json.dumps(
            {
                "id": self.device,
                "ipAddress": "127.0.0.1",
                "port": self.port,
                "pullDelay": self.pull_delay,
                "tags": [tag.keys() for tag in self.tags],
            }
        )

    @cached_property
    def pattern(self) -> re.Pattern[bytes]:
        return re.compile(b"".join(b"%d=%s\n" % (tag.id, tag.kind.pattern) for tag in self.tags))

    def values(self, batch: bytes) -> list[bytes] | None:
        """The texts of a batch of these tags: all of them, in order, each as its type is written."""
        match = self.pattern.fullmatch(batch)
        if match is None:
            return None
        texts = list(match.groups())
        return texts if all(map(Tag.is_well_formed, self.tags[:EXAMINED], texts)) else None

    def moment(self, values: list[bytes]) -> float:
        """When the values were read, in seconds of the simulator's own time."""
        place, tag = next((i, tag) for i, tag in enumerate(self.tags) if tag.kind is CLOCK)
        return int(values[place]) * MILLISECOND - 3 * tag.index

    def misfit(self, values: list[bytes], moment: float) -> str:
        """The first value that another tag or another moment has; empty if there is none."""
        for tag, text in zip(self.tags[:EXAMINED], values):
            if not tag.fits(text, moment):
                return f"{tag.address} is {text[:80]!r} at {moment:.3f} s"
        return ""


def whole_plant(size: int, pull_delay: int = 0, port: int = 0) -> Description:
    return Description(tuple(Tag(i + 1, i) for i in range(size)), pull_delay, port)


def some_tags(rng: random.Random, port: int) -> Description:
    """A few tags with ids and in an order that hardly ever come again; a clock and a whole text are
    always among them."""
    clock, text = KINDS.index(CLOCK), KINDS.index(STRING)
    indexes = {clock, text, *rng.sample(range(120), rng.randint(3, 40))}
    order = rng.sample(sorted(indexes), len(indexes))
    ids = rng.sample(range(1, 65536), len(order))
    tags = (Tag(id, index, 0 if index == text else rng.choice((0, 4))) for id, index in zip(ids, order))
    return Description(tuple(tags), rng.choice((25, 100, 250, 1000, 2500)), port)
