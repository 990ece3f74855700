"""Logs in many users in one process, each of whom writes to the next: python3 load.py [API SERVER] [USERS] [MESSAGES]

Says how long it took, and how long a message was on its way.
"""

import asyncio
import sys
import time
from contextlib import AsyncExitStack

import kvpim

TOKEN = "0123456789abcdef0123456789abcdef"
AT_ONCE = 50  # logins at a time: what is measured is not how many connections a server takes at once


async def read(messages: kvpim.EventStream[kvpim.MessageReceived], count: int) -> list[float]:
    took: list[float] = []
    while len(took) < count:
        event = await anext(messages)
        took.append(time.perf_counter() - float(event.message.text or 0))
    return took


async def write(client: kvpim.Client, receiver: str, count: int) -> None:
    for _ in range(count):
        await client.send_to_peer(receiver, str(time.perf_counter()))


async def main(api_server: str, users: int, count: int) -> None:
    names = [f"load {number}" for number in range(users)]
    gate = asyncio.Semaphore(AT_ONCE)

    async def log_in(client: kvpim.Client, name: str) -> None:
        async with gate:
            await client.login(TOKEN, name)

    async with AsyncExitStack() as stack:
        start = time.perf_counter()
        clients = [await stack.enter_async_context(kvpim.Client("demo", api_server=api_server)) for _ in names]
        await asyncio.gather(*map(log_in, clients, names))
        print(f"{users} users logged in within {time.perf_counter() - start:.2f} s", flush=True)

        start, used = time.perf_counter(), time.process_time()
        reading = [asyncio.create_task(read(client.messages(), count)) for client in clients]
        await asyncio.sleep(0)
        await asyncio.gather(*(write(client, names[number - 1], count) for number, client in enumerate(clients)))
        took = sorted(sum(await asyncio.gather(*reading), []))
        seconds, cpu = time.perf_counter() - start, time.process_time() - used
        print(f"{len(took)} messages within {seconds:.2f} s, {cpu * 1e6 / len(took):.0f} us of CPU time each; on their way:")
        print(f"half within {took[len(took) // 2] * 1e3:.1f} ms, all within {took[-1] * 1e3:.1f} ms", flush=True)


arguments = sys.argv[1:] + ["http://127.0.0.1:8600", "200", "10"][len(sys.argv) - 1 :]
asyncio.run(main(arguments[0], int(arguments[1]), int(arguments[2])))
