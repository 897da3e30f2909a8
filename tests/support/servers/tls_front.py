#!/usr/bin/env python3
"""Ends TLS in front of a test server that does not speak it.

    tls_front.py CERTIFICATE KEY SERVER_PORT CONTROL_PORT

Listens on a free port of 127.0.0.1, connects to CONTROL_PORT and says there, in a line, which one it is; ends with
that connection. (A pipe would be more usual, but those of Windows programs under Wine do not reach a Linux program.)

A client whose handshake is done gets a connection to SERVER_PORT of its own. The end of either side is passed on to the
other: an orderly one by TLS's own message, a reset by the server as a reset.
"""

import asyncio
import socket
import ssl
import struct
import sys


async def relay(reader, writer):
    while data := await reader.read(65536):
        writer.write(data)
        await writer.drain()


def reset(writer):
    writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    writer.transport.abort()


async def serve(client_reader, client_writer, server_port):
    try:
        server_reader, server_writer = await asyncio.open_connection("127.0.0.1", server_port)
    except OSError:
        reset(client_writer)
        return
    ways = [
        asyncio.create_task(relay(client_reader, server_writer)),
        asyncio.create_task(relay(server_reader, client_writer)),
    ]
    await asyncio.wait(ways, return_when=asyncio.FIRST_COMPLETED)
    for way in ways:
        way.cancel()
    await asyncio.gather(*ways, return_exceptions=True)
    if server_reader.exception():
        reset(client_writer)
    else:
        client_writer.close()
        await asyncio.gather(client_writer.wait_closed(), return_exceptions=True)
    server_writer.close()


async def main(certificate, key, server_port, control_port):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    listener = await asyncio.start_server(
        lambda reader, writer: serve(reader, writer, server_port), "127.0.0.1", 0, ssl=context
    )
    control_reader, control_writer = await asyncio.open_connection("127.0.0.1", control_port)
    control_writer.write(b"%d\n" % listener.sockets[0].getsockname()[1])
    await control_reader.read()


if __name__ == "__main__":
    asyncio.run(main(sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])))
