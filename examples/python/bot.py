"""A bot that does what its visitors write to it, until SIGINT or SIGTERM: python3 bot.py [API SERVER] [USER]

Everybody can see that it is there, and since when; it greets those who went away and came back. A lost connection is the
library's business: it comes back by itself, with the attributes and the subscriptions.
"""

import asyncio
import signal
import sys
import time

import kvpim

TOKEN = "0123456789abcdef0123456789abcdef"


async def log_in(client: kvpim.Client, user: str) -> None:
    while True:
        try:
            await client.login(TOKEN, user)
            break
        except kvpim.TimedOut as error:
            print(f"bot: the login failed: {error.text}", flush=True)
            await asyncio.sleep(3)
    await client.set_local_user_attributes({"kind": "bot", "since": str(int(time.time()))})
    print("bot: told everybody that it is here", flush=True)


def answer_to(message: kvpim.Message) -> str:
    if message.text is None:
        return "Those were bytes."
    if message.text == "help":
        return "time: what time it is. Everything else: I say it back."
    return str(int(time.time())) if message.text == "time" else f"You said: {message.text}"


async def serve(client: kvpim.Client, user: str) -> None:
    events = client.events()  # before the login, which brings what was written meanwhile
    await log_in(client, user)
    away: set[str] = set()
    async for event in events:
        try:
            if isinstance(event, kvpim.MessageReceived):
                await client.subscribe_peers_online_status([event.peer_id])
                await client.send_to_peer(event.peer_id, answer_to(event.message))
            elif isinstance(event, kvpim.PeersOnlineStatusChanged):
                for status in event.statuses:
                    if not status.is_online:
                        away.add(status.peer_id)
                    elif status.peer_id in away:
                        away.remove(status.peer_id)
                        await client.send_to_peer(status.peer_id, "Welcome back!")
            elif isinstance(event, kvpim.ConnectionStateChanged):
                print(f"bot: {event.state.name.lower()}", flush=True)
                if event.state == kvpim.ConnectionState.DISCONNECTED:
                    break  # another login of this user, since the library reconnects otherwise
        except kvpim.Error as error:
            print(f"bot: {error}", flush=True)


async def main(api_server: str, user: str) -> None:
    async with kvpim.Client("demo", api_server=api_server) as client:
        serving = asyncio.create_task(serve(client, user))
        for end in (signal.SIGINT, signal.SIGTERM):
            asyncio.get_running_loop().add_signal_handler(end, serving.cancel)
        await asyncio.wait([serving])
        if not serving.cancelled():
            serving.result()  # raises what has ended it
        async with asyncio.timeout(2):
            await client.logout()


asyncio.run(main(*(sys.argv[1:] + ["http://127.0.0.1:8600", "bot"][len(sys.argv) - 1 :])))
