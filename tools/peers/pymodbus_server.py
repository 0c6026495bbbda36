#!/usr/bin/python3
"""A pymodbus server (Debian's python3-pymodbus) used only as an independent peer in tests.

The image is seeded with a known pattern so that tests can check what they read:
  coil i = (i % 3 == 0), discrete input i = (i % 2 == 0),
  holding register i = 1000 + i, input register i = 2000 + i   (addresses 0..999)

usage: pymodbus_server.py --tcp PORT | --rtu-over-tcp PORT | --rtu DEVICE [--baud N]

With --rtu-over-tcp the server reads and answers raw RTU frames (CRC included) on the TCP socket.
"""
import argparse
import logging

from pymodbus.datastore import ModbusSequentialDataBlock, ModbusServerContext, ModbusSlaveContext
from pymodbus.server import StartSerialServer, StartTcpServer
from pymodbus.transaction import ModbusRtuFramer

SIZE = 1000


def context():
    slave = ModbusSlaveContext(
        co=ModbusSequentialDataBlock(0, [i % 3 == 0 for i in range(SIZE)]),
        di=ModbusSequentialDataBlock(0, [i % 2 == 0 for i in range(SIZE)]),
        hr=ModbusSequentialDataBlock(0, [1000 + i for i in range(SIZE)]),
        ir=ModbusSequentialDataBlock(0, [2000 + i for i in range(SIZE)]),
        zero_mode=True,
    )
    return ModbusServerContext(slaves=slave, single=True)


def main():
    parser = argparse.ArgumentParser()
    group = parser.add_mutually_exclusive_group(required=True)
    group.add_argument("--tcp", type=int)
    group.add_argument("--rtu")
    group.add_argument("--rtu-over-tcp", type=int)
    parser.add_argument("--baud", type=int, default=19200)
    args = parser.parse_args()
    logging.basicConfig(level=logging.WARNING)
    if args.rtu_over_tcp is not None:
        StartTcpServer(context=context(), address=("127.0.0.1", args.rtu_over_tcp), framer=ModbusRtuFramer,
                       allow_reuse_address=True)
    elif args.tcp is not None:
        StartTcpServer(context=context(), address=("127.0.0.1", args.tcp), allow_reuse_address=True)
    else:
        StartSerialServer(context=context(), framer=ModbusRtuFramer, port=args.rtu, baudrate=args.baud)


if __name__ == "__main__":
    main()
