#!/usr/bin/env python3
"""Forwards connections to a port of this machine and holds back every byte, and the begin of every connection, as a
network with this round-trip time would: slow_proxy.py FROM-PORT TO-PORT MILLISECONDS"""
import asyncio
import sys

from_port, to_port, delay = int(sys.argv[1]), int(sys.argv[2]), int(sys.argv[3]) / 1000


async def forward(reader, writer):
    loop = asyncio.get_running_loop()
    queue = asyncio.Queue(1000)

    async def give_out():
        while (item := await queue.get())[1]:
            await asyncio.sleep(item[0] - loop.time())
            writer.write(item[1])
            await writer.drain()
        writer.close()

    task = loop.create_task(give_out())
    try:
        while data := await reader.read(1 << 18):
            await queue.put((loop.time() + delay / 2, data))
    except ConnectionError:
        pass
    await queue.put((0, b""))
    try:
        await task
    except ConnectionError:
        pass


async def accept(reader, writer):
    await asyncio.sleep(delay)
    there = await asyncio.open_connection("127.0.0.1", to_port)
    await asyncio.gather(forward(reader, there[1]), forward(there[0], writer))


async def main():
    server = await asyncio.start_server(accept, "127.0.0.1", from_port, backlog=1000)
    await server.serve_forever()


asyncio.run(main())
