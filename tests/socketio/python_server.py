# The server of python-socketio, for the tests. It emits while it still accepts. Ends with its standard input.
import asyncio
import sys

import socketio
from aiohttp import web

sio = socketio.AsyncServer(async_mode="aiohttp")


@sio.event
async def connect(sid, environ):
    await sio.emit("event", "early", to=sid)


@sio.event
async def ask(sid):
    async def question():
        await sio.emit("event", await sio.call("question", 1, to=sid), to=sid)

    sio.start_background_task(question)


async def main():
    app = web.Application()
    sio.attach(app)
    runner = web.AppRunner(app)
    await runner.setup()
    site = web.TCPSite(runner, "127.0.0.1", 0)
    await site.start()
    print(runner.addresses[0][1], flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)


asyncio.run(main())
