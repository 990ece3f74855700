"""Python: this library's package beside the Socket.IO client of Debian, both with asyncio.

client.py kvpim|socketio PORT ack_pipelined|recv_text OPS WARMUP
client.py kvpim PORT crowd CLIENTS 0
"""

import asyncio
import contextlib
import json
import logging
import os
import resource
import sys
import tempfile
import time

DEEP = 64
TEXT = "x" * 64
TOKEN = "0123456789abcdef0123456789abcdef"


class KvPim:
    """The package `kvpim`."""

    def __init__(self, port, files, user="alice"):
        import kvpim

        self.client = kvpim.Client(
            "bench",
            api_server=f"http://127.0.0.1:{port}",
            collect_server="http://127.0.0.1:9/",
            caches_directory=f"{files}/caches",
            key_store_directory=f"{files}/keys",
        )
        self.user = user

    async def login(self):
        await self.client.__aenter__()
        await self.client.login(TOKEN, self.user)

    async def send(self):
        await self.client.send_to_peer("bob", TEXT)

    async def receive(self, count):
        with contextlib.closing(self.client.messages(limit=count)) as messages:
            self.client.send_to_peer("flood-text", str(count))
            for _ in range(count):
                assert len((await anext(messages)).message.text) == len(TEXT)

    async def close(self):
        await self.client.__aexit__(None, None, None)


class SocketIo:
    """python3-socketio, speaking the same protocol."""

    def __init__(self, port, _files):
        import socketio

        self.port = port
        self.client = socketio.AsyncClient(reconnection=False)
        self.logged_in = asyncio.Event()
        self.client.on("loginSuccess", lambda *_: self.logged_in.set())

    async def login(self):
        from urllib.parse import quote

        token = quote(json.dumps({"userId": "alice", "token": "t"}))
        url = f"http://127.0.0.1:{self.port}/?app=bench&roomId=room-1&token={token}"
        await self.client.connect(url, transports=["websocket"])
        await self.logged_in.wait()

    async def send(self):
        content = {"text": TEXT, "binary": None}
        message = {"targetUserId": "bob", "content": content, "option": {"offline": False}}
        answer = await self.client.call("command", ("sendMessageToPeer", message))
        assert answer["result"] == 0

    async def receive(self, count):
        done = asyncio.Event()
        left = count

        def on_message(message):
            nonlocal left
            assert len(message["msgs"][0]["content"]["text"]) == len(TEXT)
            left -= 1
            if left == 0:
                done.set()

        self.client.on("MessageToPeerReceived", on_message)
        await self.client.emit("flood", {"n": count, "size": len(TEXT), "binary": False})
        await done.wait()

    async def close(self):
        await self.client.disconnect()


async def pipelined(client, count):
    left = count

    async def work():
        nonlocal left
        while left > 0:
            left -= 1
            await client.send()

    await asyncio.gather(*(work() for _ in range(DEEP)))


async def measure(name, port, workload, operations, warm_up, files):
    client = {"kvpim": KvPim, "socketio": SocketIo}[name](port, files)
    await client.login()
    run = client.receive if workload == "recv_text" else lambda count: pipelined(client, count)
    await run(warm_up)
    cpu, wall = time.process_time(), time.perf_counter()
    await run(operations)
    cpu, wall = time.process_time() - cpu, time.perf_counter() - wall
    line = {
        "workload": workload,
        "client": f"python-{name}",
        "ops": operations,
        "wall_s": round(wall, 4),
        "cpu_us_per_op": round(cpu * 1e6 / operations, 3),
    }
    print(json.dumps(line), flush=True)
    await client.close()


def status(name):
    with open("/proc/self/status") as lines:
        return next(int(line.split()[1]) for line in lines if line.startswith(name))


async def crowd(port, count, files):
    clients = [KvPim(port, files, f"user{i}") for i in range(count)]
    await clients[0].login()
    before = status("VmRSS:")
    for i in range(1, count, 50):
        await asyncio.gather(*(client.login() for client in clients[i : i + 50]))
    line = {
        "workload": "crowd",
        "client": "python-kvpim",
        "ops": count,
        "kb_per_client": round((status("VmRSS:") - before) / max(count - 1, 1), 1),
        "descriptors": len(os.listdir("/proc/self/fd")),
        "threads": status("Threads:"),
    }
    print(json.dumps(line), flush=True)
    for client in clients:
        await client.close()


def main():
    name, port, workload = sys.argv[1:4]
    operations, warm_up = map(int, sys.argv[4:6])
    logging.disable()
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    with tempfile.TemporaryDirectory() as files:
        run = crowd(port, operations, files) if workload == "crowd" else measure(name, port, workload, operations, warm_up, files)
        asyncio.run(run)


main()
