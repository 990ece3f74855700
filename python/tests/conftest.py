"""The local service, and what tests say to it."""

import asyncio
import json
import os
import subprocess
import urllib.request
from collections.abc import Awaitable, Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
import uvloop

ROOT = Path(__file__).parents[2]
TOKEN = "0123456789abcdef0123456789abcdef"


class Service:
    def __init__(self, url: str) -> None:
        self.url = url

    def control(self, what: str, **body: Any) -> Any:
        data = json.dumps(body).encode() if body else None
        with urllib.request.urlopen(f"{self.url}/control/{what}", data, timeout=10) as answer:
            return json.load(answer)

    def silence(self, command: str) -> None:
        """The next such command gets no answer."""
        self.control("answer", command=command, answer=None)


@pytest.fixture(scope="session", autouse=True)
def caches(tmp_path_factory: pytest.TempPathFactory) -> None:
    """What clients keep on the disk is not to stay."""
    os.environ["XDG_CACHE_HOME"] = os.environ["HOME"] = str(tmp_path_factory.mktemp("home"))


@pytest.fixture(scope="session")
def service() -> Iterator[Service]:
    command = ["node", str(ROOT / "service/main.js"), "--port", "0", "--control", "--exit-with-stdin", "--quiet"]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
        assert process.stdin and process.stdout
        line = process.stdout.readline()
        yield Service(line.split()[-1])
        process.stdin.close()


Main = Callable[[], Awaitable[None]]


@pytest.fixture(params=[asyncio.new_event_loop, uvloop.new_event_loop], ids=["asyncio", "uvloop"])
def run(request: pytest.FixtureRequest) -> Callable[[Main], None]:
    def run(main: Main) -> None:
        async def bounded() -> None:
            async with asyncio.timeout(30):
                await main()

        with asyncio.Runner(loop_factory=request.param) as runner:
            runner.run(bounded())

    return run
