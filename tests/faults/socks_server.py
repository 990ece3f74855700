# A SOCKS 5 proxy that wants a user and a password: its arguments. All names are 127.0.0.1. Prints its port, and then
# whom it is asked for. Ends with its standard input.
import asyncio
import sys

user, password = (argument.encode() for argument in sys.argv[1:3])


async def text(reader):
    return await reader.readexactly((await reader.readexactly(1))[0])


async def carry(reader, writer):
    while data := await reader.read(65536):
        writer.write(data)
        await writer.drain()
    writer.close()


async def converse(reader, writer):
    version, methods = await reader.readexactly(1), await text(reader)
    writer.write(b"\5\2" if version == b"\5" and 2 in methods else b"\5\xff")
    version, asked = await reader.readexactly(1), (await text(reader), await text(reader))
    isKnown = version == b"\1" and asked == (user, password)
    writer.write(b"\1\0" if isKnown else b"\1\1")
    if not isKnown:
        return writer.close()
    kind = (await reader.readexactly(4))[3]
    host = (await text(reader)).decode() if kind == 3 else ".".join(map(str, await reader.readexactly(4)))
    print(host, flush=True)
    port = int.from_bytes(await reader.readexactly(2), "big")
    try:
        there = await asyncio.open_connection("127.0.0.1", port)
    except OSError:
        writer.write(b"\5\5")  # a refusal that ends with its code
        return writer.close()
    writer.write(b"\5\0\0\3\4here\0\0")  # an address that is a name
    await asyncio.gather(carry(reader, there[1]), carry(there[0], writer))


async def serve(reader, writer):
    try:
        await converse(reader, writer)
    except (EOFError, OSError):
        writer.close()


async def main():
    server = await asyncio.start_server(serve, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)


asyncio.run(main())
