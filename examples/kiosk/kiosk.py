#!/usr/bin/env python3
"""kiosk.py COLLECTOR CONTAINER: a kiosk that tells a collector which screens people look at.

A line of standard input is the name of the screen that is shown now; what a real kiosk does instead
is to call Kiosk.show() when it shows one. It ends at the end of the input, at SIGINT and at SIGTERM,
and keeps the hits that could not go out for its next run.

It finds the package `qvcore` on PYTHONPATH, and the library as the package tells.
"""

import asyncio
import signal
import sys
from typing import Set
from urllib.parse import urlencode

import qvcore


class Kiosk:
    def __init__(self, kit: qvcore.Kit, collector: str) -> None:
        self._kit = kit
        self._collector = collector
        self._hits: Set["asyncio.Task[None]"] = set()

    def show(self, screen: str) -> None:
        """Nobody at a kiosk waits for a collector: the hit goes out beside what comes next."""
        task = asyncio.create_task(self._tell(screen))
        self._hits.add(task)
        task.add_done_callback(self._hits.discard)

    async def _tell(self, screen: str) -> None:
        body = urlencode({"screen": screen})
        try:
            answer = await self._kit.request(f"{self._collector}/hit", body, screen=screen)
            print(f"{screen}: {answer.info[qvcore.keys.CONTENT]}", flush=True)
        except qvcore.RequestError as error:
            print(f"{screen}: {error.notification.status or 'no answer'}", flush=True)

    async def settle(self, seconds: float) -> None:
        """Gives what is under way a moment; what still waits then is saved when the kit closes."""
        if self._hits:
            await asyncio.wait(self._hits, timeout=seconds)
        for task in self._hits:
            task.cancel()


async def lines_of_input() -> asyncio.StreamReader:
    reader = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(
        lambda: asyncio.StreamReaderProtocol(reader), sys.stdin)
    return reader


async def show_screens(kiosk: Kiosk) -> None:
    async for line in await lines_of_input():
        if screen := line.decode(errors="replace").strip():
            kiosk.show(screen)


async def main(collector: str, container: str) -> None:
    async with qvcore.Kit("org.example.kiosk", container=container, assume_network=True) as kit:
        kiosk = Kiosk(kit, collector)
        screens = asyncio.create_task(show_screens(kiosk))
        for number in (signal.SIGINT, signal.SIGTERM):
            asyncio.get_running_loop().add_signal_handler(number, screens.cancel)
        await asyncio.wait([screens])
        await kiosk.settle(seconds=2)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    asyncio.run(main(*sys.argv[1:]))
