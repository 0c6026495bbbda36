"""A pymodbus TCP server on 127.0.0.1 with an ephemeral port, for the trace/PCAP interop test.

Usage: trace_pymodbus_server.py PORTFILE [LIFETIME_SECONDS]

Unit 1 holds holding registers 1000 + i and input registers 3000 + i; unit 17 holds holding
registers 2000 + i. The chosen port is written to PORTFILE once the server listens. The server
exits by itself after LIFETIME_SECONDS (default 60) if nobody stops it first.
"""
import asyncio
import os
import sys

from pymodbus.datastore import ModbusSequentialDataBlock, ModbusServerContext, ModbusSlaveContext
from pymodbus.server.async_io import ModbusTcpServer


def unit(holding_base, input_base):
    return ModbusSlaveContext(
        di=ModbusSequentialDataBlock(0, [0] * 100),
        co=ModbusSequentialDataBlock(0, [0] * 100),
        hr=ModbusSequentialDataBlock(0, [holding_base + i for i in range(100)]),
        ir=ModbusSequentialDataBlock(0, [input_base + i for i in range(100)]),
        zero_mode=True,
    )


async def main(port_file, lifetime):
    context = ModbusServerContext(slaves={1: unit(1000, 3000), 17: unit(2000, 4000)}, single=False)
    server = ModbusTcpServer(context, address=("127.0.0.1", 0), allow_reuse_address=True)
    task = asyncio.ensure_future(server.serve_forever())
    await asyncio.wait_for(server.serving, timeout=10)
    port = server.server.sockets[0].getsockname()[1]
    with open(port_file + ".tmp", "w") as f:
        f.write(str(port))
    os.rename(port_file + ".tmp", port_file)
    try:
        await asyncio.wait_for(task, timeout=lifetime)
    except asyncio.TimeoutError:
        pass
    await server.shutdown()


if __name__ == "__main__":
    asyncio.run(main(sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 60.0))
