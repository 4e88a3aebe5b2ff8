# SPDX-License-Identifier: MIT
from __future__ import annotations

import asyncio
from collections.abc import Callable


class Violation(Exception):
    """Something that must never happen."""


async def until(condition: Callable[[], bool], limit: float, otherwise: Callable[[], str]) -> None:
    """Waits until something holds; at the limit, in seconds, what happened instead is a violation."""
    loop = asyncio.get_running_loop()
    end = loop.time() + limit
    while not condition():
        if loop.time() > end:
            raise Violation(f"{otherwise()} within {limit:.1f} s")
        await asyncio.sleep(0.02)
