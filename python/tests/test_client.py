"""The client against the local service."""

import asyncio
import gc
import subprocess
import sys
import threading
import time
from collections.abc import Callable
from typing import Any

import kvpim
import pytest
from conftest import TOKEN, Main, Service

Run = Callable[[Main], None]
BYTES = bytes(range(256)) * 128  # the largest message


async def logged_in(service: Service, user: str, **options: Any) -> kvpim.Client:
    client = kvpim.Client("demo", api_server=service.url, **options)
    client.open()
    await client.login(TOKEN, user)
    return client


async def first(stream: Any, kind: type[Any]) -> Any:
    async for event in stream:
        if isinstance(event, kind):
            return event
    raise AssertionError(f"no {kind.__name__}")


def test_two_users_do_all_that_there_is(service: Service, run: Run) -> None:
    async def main() -> None:
        async with kvpim.Client("demo", api_server=service.url) as alice, kvpim.Client(
            "demo", api_server=service.url
        ) as bob:
            told, heard = alice.events(), bob.events()
            await asyncio.gather(alice.login(TOKEN, "alice"), bob.login(TOKEN, "bob"))
            changed = await first(heard, kvpim.ConnectionStateChanged)
            assert (changed.state, changed.reason) == (2, kvpim.ConnectionChangeReason.LOGIN)
            assert (await bob.state()).user_id == "bob"

            await alice.send_to_peer("bob", "grüß dich \0 \N{PARTY POPPER}")
            message = await first(heard, kvpim.MessageReceived)
            assert (message.peer_id, message.message.raw_data) == ("alice", None)
            assert message.message.text == "grüß dich \0 \N{PARTY POPPER}"
            assert abs(message.message.server_received_ts / 1000 - time.time()) < 60
            for data, text in ((BYTES, "all"), (b"", None), (memoryview(b"view"), None)):
                await alice.send_to_peer("bob", data, text=text)
                received = (await first(heard, kvpim.MessageReceived)).message
                assert (received.raw_data, received.text) == (bytes(data), text)

            garden = await alice.join("garden")
            in_garden = garden.events()
            await bob.join("garden", delegate=[kvpim.ChannelMessageReceived])
            assert (await first(in_garden, kvpim.MemberJoined)).member == kvpim.Member("bob", "garden")
            assert [member.user_id for member in await garden.members()] == ["alice", "bob"]
            assert await alice.get_channel_member_count(["garden"]) == [kvpim.ChannelMemberCount("garden", 2)]
            await garden.send(b"seed")
            planted = await first(heard, kvpim.ChannelMessageReceived)
            assert (planted.member.user_id, planted.message.raw_data) == ("alice", b"seed")
            await alice.set_channel_attributes(
                "garden", {"weather": "fine"}, enable_notification_to_channel_members=True
            )
            assert (await first(in_garden, kvpim.AttributeUpdate)).attributes == {"weather": "fine"}
            assert await bob.get_channel_attributes("garden") == {"weather": "fine"}

            await bob.subscribe_peers_online_status(["alice"])
            status = await first(heard, kvpim.PeersOnlineStatusChanged)
            assert status.statuses == (kvpim.PeerOnlineStatus("alice", True),)
            assert await bob.query_peers_by_subscription_option(kvpim.Subscription.ONLINE_STATUS) == ["alice"]
            await bob.subscribe_peers_user_attributes(["alice"])
            await alice.set_local_user_attributes({"mood": "good"})
            mood = (kvpim.UserAttributes("alice", (kvpim.Attribute("mood", "good", False),)),)
            assert (await first(heard, kvpim.PeersUserAttributesChanged)).users == mood
            assert await bob.get_user_attributes("alice") == {"mood": "good"}

            theirs, mine = await bob.invitations(), await alice.invitations()
            await mine.new("tea", "alice", "bob", request_info="at five")
            assert (await mine.send("tea")).state == kvpim.InvitationState.PENDING
            arrived = await first(heard, kvpim.InvitationArrived)
            assert (arrived.label, arrived.invitation.request_info) == ("from:alice", "at five")
            await theirs.accept(arrived.label, response_info="yes")
            accepted = await first(told, kvpim.InvitationAccepted)
            assert (accepted.label, accepted.invitation.response_info) == ("tea", "yes")
            assert (await mine.get("tea")).state == kvpim.InvitationState.ACCEPTED

            assert (await alice.metrics())["logins"] is not None
            assert "kvpim" in await alice.open_metrics_text()
            assert await alice.bytes_queued() == 0

    run(main)


def test_errors_say_what_and_why(service: Service, run: Run) -> None:
    async def main() -> None:
        async with kvpim.Client("demo", api_server=service.url) as client:
            with pytest.raises(kvpim.NotLoggedIn) as not_yet:
                await client.send_to_peer("bob", "hello")
            assert (not_yet.value.operation, not_yet.value.code) == ("sendMessageToPeer", 102)
            with pytest.raises(kvpim.Error, match="token is invalid") as refused:
                await client.login("short", "alice")
            assert (refused.value.name, refused.value.code) == ("KvPimLoginErrorInvalidToken", 5)
            with pytest.raises(kvpim.NotThere):
                await client.join("\N{SNOWMAN}")
            with pytest.raises(kvpim.Error, match="not valid"):
                await client.create_channel("")
            with pytest.raises(ValueError):
                client.query_peers_by_subscription_option(1 << 70)
            with pytest.raises(ValueError):
                client.send_to_peer("bob", "\udc80")
        with pytest.raises(kvpim.ClosedError):
            client.logout()
        async with kvpim.Client("demo", api_server="http://127.0.0.1:1") as client:
            with pytest.raises(kvpim.TimedOut) as nobody:
                await client.login(TOKEN, "alice")
            assert nobody.value.failure and nobody.value.failure.stage == "tcp"
        for impossible in (
            kvpim.Client("demo", api_server="nonsense"),
            kvpim.Client("demo", network=kvpim.Network(socket_path="no slash")),
        ):
            with pytest.raises(kvpim.CreateError):
                impossible.open()

    run(main)


@pytest.mark.parametrize(
    "options",
    [
        {"app_id": 7},
        {"api_server": b"bytes"},
        {"upload_interval": "1"},
        {"max_queued_bytes": True},
        {"network": {"proxy": ""}},
        {"network": kvpim.Network(tls=kvpim.Tls(pins="one"))},
        {"network": kvpim.Network(headers={"name": 1})},  # type: ignore[dict-item]
        {"delegate": [kvpim.MemberJoined]},
    ],
)
def test_wrong_options_raise_at_once(options: dict[str, Any]) -> None:
    with pytest.raises(TypeError, match=list(options)[0] + "|pins|headers"):
        kvpim.Client(**{"app_id": "demo", **options})  # type: ignore[arg-type]


def test_a_login_that_goes_on_is_awaited_to_its_end(service: Service, run: Run) -> None:
    async def main() -> None:
        async with kvpim.Client("demo", api_server=service.url, network=kvpim.Network(connect_timeout=0.001)) as client:
            events = client.events()
            await client.login(TOKEN, "late")
            reasons = [(await anext(events)).reason for _ in range(len(events))]  # type: ignore[attr-defined]
            assert kvpim.ConnectionChangeReason.LOGIN_TIMEOUT in reasons

    run(main)


def test_who_stops_waiting_leaves_nothing_behind(service: Service, run: Run) -> None:
    async def main() -> None:
        client = await logged_in(service, "impatient", network=kvpim.Network(request_timeout=20))
        waiting = []
        for _ in range(3):
            service.silence("getUserAttributes")
        with pytest.raises(TimeoutError):
            async with asyncio.timeout(0.05):
                await client.get_user_attributes("impatient")
        task = asyncio.create_task(first(client.messages(), kvpim.Event))
        waiting.append(client.get_user_attributes("impatient"))
        waiting.append(client.get_user_attributes("impatient"))
        await asyncio.sleep(0)
        waiting[0].cancel()
        task.cancel()
        assert client._opened.pending.keys() == {client._opened._last} and len(client._opened._waiting) == 1
        await asyncio.wait([task])
        assert not client._opened._waiting
        del task
        gc.collect()
        assert not client._opened._streams
        client.close()
        with pytest.raises(kvpim.ClosedError):
            await waiting[1]

    run(main)


def test_streams_are_bounded_and_end(service: Service, run: Run) -> None:
    async def main() -> None:
        client = await logged_in(service, "writer")
        streams = [client.messages(limit=3, drop=drop) for drop in ("oldest", "newest")]  # type: ignore[arg-type]
        closed = client.messages()
        for number in range(5):
            await client.send_to_peer("writer", str(number))
        while not streams[1].dropped == 2:
            await asyncio.sleep(0.01)
        reader = asyncio.create_task(first(client.events(), kvpim.TokenDidExpire))
        closed.close()
        client.close()
        texts = [[event.message.text async for event in stream] for stream in [*streams, closed]]
        assert texts == [["2", "3", "4"], ["0", "1", "2"], ["0", "1", "2", "3", "4"]]
        assert [stream.dropped for stream in streams] == [2, 2]
        with pytest.raises(AssertionError):
            await reader
        with pytest.raises(ValueError):
            client.events(limit=0)

    run(main)


def test_each_loop_has_its_own_clients(service: Service, run: Run) -> None:
    elsewhere: list[kvpim.Client] = []

    def in_thread(number: int) -> None:
        async def talk() -> None:
            client = await logged_in(service, f"user {number}")
            elsewhere.append(client)
            messages = client.messages()
            for count in range(50):
                await client.send_to_peer(f"user {number}", str(count))
                assert (await anext(messages)).message.text == str(count)
            done.wait(10)
            client.close()

        asyncio.run(talk())

    done = threading.Event()
    threads = [threading.Thread(target=in_thread, args=[number]) for number in range(4)]
    for thread in threads:
        thread.start()

    async def main() -> None:
        while len(elsewhere) < len(threads):
            await asyncio.sleep(0.01)
        for use in (elsewhere[0].logout, elsewhere[0].close):
            with pytest.raises(RuntimeError, match="another event loop"):
                use()

    run(main)
    with pytest.raises(RuntimeError, match="inside the event loop"):
        elsewhere[0].logout()
    done.set()
    for thread in threads:
        thread.join()


def test_who_forgets_to_close_is_warned(service: Service, run: Run) -> None:
    async def main() -> None:
        for in_thread in (False, True):
            clients = [await logged_in(service, "forgetful")]
            with pytest.warns(ResourceWarning, match="unclosed"):
                await asyncio.to_thread(clients.clear) if in_thread else clients.clear()
                gc.collect()
            while service.control("state")["apps"]["demo"]["users"].get("forgetful", {}).get("connected"):
                await asyncio.sleep(0.01)

    run(main)


# Each is a whole program: what it prints, and that it ends well with nothing but the library's prints beside it.
PROGRAMS = {
    "exit with clients that live": (
        """
        async def main():
            global client
            client = kvpim.Client("demo", api_server=sys.argv[1])
            client.open()
            await client.login(sys.argv[2], "exit")
            client.get_user_attributes("exit")
            print("end")
        asyncio.run(main())
        """,
        "end",
    ),
    "fork": (
        """
        async def make():
            kvpim.Client("demo").open()
        async def main():
            async with kvpim.Client("demo", api_server=sys.argv[1]) as client:
                await client.login(sys.argv[2], "fork")
                child = os.fork()
                if child == 0:
                    for use in client.logout, client.close, lambda: asyncio.run(make()):
                        try: use()
                        except RuntimeError as error: print("fork" in str(error), flush=True)
                    os._exit(0)
                assert os.waitpid(child, 0)[1] == 0
                await client.send_to_peer("fork", "the parent goes on")
                print("end")
        asyncio.run(main())
        """,
        "True\nTrue\nTrue\nend",
    ),
    "lines go where they are wanted": (
        """
        told = []
        kvpim.set_console(lambda stream, line: told.append(line))
        kvpim.set_log(lambda level, line: told.append(level))
        try: kvpim.set_log(sys.stderr)
        except TypeError: pass
        client = kvpim.sync.Client("demo", api_server=sys.argv[1])
        client.open()
        client.set_log_filters(8)
        client.login(sys.argv[2], "lines")
        while not any("loganDir" in str(line) for line in told): pass
        print(1 in told)
        """,
        "True",
    ),
    "without a loop": (
        """
        with kvpim.sync.Client("demo", api_server=sys.argv[1]) as client:
            events = client.events(timeout=0.2)
            client.login(sys.argv[2], "script")
            client.join("hall").send("hello")
            client.send_to_peer("script", b"note")
            print([event.message.raw_data for event in events if isinstance(event, kvpim.MessageReceived)])
            try: client.send_to_peer("script", 7)
            except TypeError: print("TypeError")
        """,
        "[b'note']\nTypeError",
    ),
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_programs_end_well(service: Service, name: str) -> None:
    program, said = PROGRAMS[name]
    lines = "import asyncio, os, sys, kvpim\n" + "\n".join(line[8:] for line in program.splitlines())
    command = [sys.executable, "-X", "dev", "-W", "ignore::ResourceWarning", "-c", lines, service.url, TOKEN]
    ended = subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=30)
    others = [line for line in ended.stderr.splitlines() if not line.startswith("loganDir:")]
    assert (ended.returncode, others) == (0, [])
    assert said in ended.stdout
