"""The examples as whole programs, and the lines of README.md."""

import asyncio
import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import kvpim
from conftest import ROOT, TOKEN, Service


def start(name: str, *arguments: str) -> subprocess.Popen[str]:
    command = [sys.executable, "-W", "error", str(ROOT / "examples/python" / name), *arguments]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True)


def wait_for(program: subprocess.Popen[str], words: str) -> None:
    assert program.stdout
    assert any(words in line for line in program.stdout)


def test_the_bot_answers_and_greets(service: Service) -> None:
    async def visit(what: str) -> list[str | None]:
        async with kvpim.Client("demo", api_server=service.url) as client:
            messages = client.messages()
            await client.login(TOKEN, "visitor")
            await client.send_to_peer("bot", what)
            async with asyncio.timeout(10):
                return [(await anext(messages)).message.text for _ in range(2 if what == "again" else 1)]

    with start("bot.py", service.url) as bot:
        wait_for(bot, "is here")
        assert asyncio.run(visit("hello")) == ["You said: hello"]
        assert set(asyncio.run(visit("again"))) == {"Welcome back!", "You said: again"}
        bot.send_signal(signal.SIGTERM)
        assert bot.wait(10) == 0


def test_a_file_arrives(service: Service, tmp_path: Path) -> None:
    file = tmp_path / "file"
    file.write_bytes(os.urandom(1_000_003))
    (tmp_path / "there").mkdir()
    with start("send_file.py", service.url, "receive", "receiver", str(tmp_path / "there")) as receiver:
        wait_for(receiver, "ready")
        with start("send_file.py", service.url, "send", "sender", "receiver", str(file)) as sender:
            wait_for(sender, "sent 1000003 bytes")
            assert (sender.wait(20), receiver.wait(20)) == (0, 0)
    assert (tmp_path / "there/file").read_bytes() == file.read_bytes()


def test_two_hundred_users_in_one_process(service: Service) -> None:
    with start("load.py", service.url) as load:
        wait_for(load, "200 users logged in")
        wait_for(load, "2000 messages")
        assert load.wait(20) == 0


def test_the_lines_of_the_readme_work(service: Service) -> None:
    shown = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)
    assert shown
    program = shown[1].replace("http://127.0.0.1:8600", service.url)
    said = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, errors="replace", timeout=30)
    assert said.returncode == 0 and "alice says: Hello, world" in said.stdout, said.stderr
