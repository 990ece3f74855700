"""Sends a file to another user, in pieces:

    python3 send_file.py API_SERVER receive USER DIRECTORY
    python3 send_file.py API_SERVER send USER RECEIVER FILE

The receiver ends when it has one. A piece is a message of bytes, whose text says what it is a piece of.
"""

import asyncio
import hashlib
import json
import sys
from pathlib import Path

import kvpim

TOKEN = "0123456789abcdef0123456789abcdef"
PIECE = 32 * 1024  # the largest message
ON_THE_WAY = 32  # pieces that are sent before their answers have come


async def send(client: kvpim.Client, receiver: str, path: Path) -> None:
    content = path.read_bytes()
    about = {"name": path.name, "size": len(content), "sha256": hashlib.sha256(content).hexdigest()}
    free = asyncio.Semaphore(ON_THE_WAY)

    async def send_piece(start: int) -> None:
        async with free:
            text = json.dumps({**about, "start": start})
            await client.send_to_peer(receiver, content[start : start + PIECE], text=text)

    async with asyncio.TaskGroup() as pieces:
        for start in range(0, max(len(content), 1), PIECE):
            pieces.create_task(send_piece(start))
    print(f"sent {about['size']} bytes", flush=True)


async def receive(client: kvpim.Client, messages: kvpim.EventStream[kvpim.MessageReceived], directory: Path) -> None:
    pieces: dict[int, bytes] = {}
    size = 0
    async for event in messages:
        if event.message.raw_data is None or event.message.text is None:
            continue
        about = json.loads(event.message.text)
        pieces[about["start"]] = event.message.raw_data
        size += len(event.message.raw_data)
        if size == about["size"]:
            break
    content = b"".join(pieces[start] for start in sorted(pieces))
    if hashlib.sha256(content).hexdigest() != about["sha256"]:
        raise SystemExit("the file has changed on its way")
    path = directory / Path(about["name"]).name  # a sender's word: no directories in it
    path.write_bytes(content)
    print(f"received {path} of {event.peer_id}: {size} bytes", flush=True)


async def main(api_server: str, what: str, user: str, *arguments: str) -> None:
    async with kvpim.Client("demo", api_server=api_server) as client:
        messages = client.messages(limit=1 << 20)  # pieces must not be lost
        await client.login(TOKEN, user)
        print("ready", flush=True)
        if what == "send":
            await send(client, arguments[0], Path(arguments[1]))
        else:
            await receive(client, messages, Path(arguments[0]))


asyncio.run(main(*sys.argv[1:]))
