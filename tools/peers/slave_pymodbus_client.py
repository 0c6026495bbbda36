#!/usr/bin/python3
"""A Modbus master built on pymodbus, used by the interop tests to talk to Kestrel's slave.

    slave_pymodbus_client.py tcp PORT OP...
    slave_pymodbus_client.py rtu-over-tcp PORT OP...
    slave_pymodbus_client.py rtu DEVICE BAUD PARITY OP...

The operations and the printed lines are those of slave_libmodbus_client.c:
unit:N, rc:A:N, rd:A:N, rh:A:N, ri:A:N, wc:A:B, wr:A:V, wcs:A:B,B..., wrs:A:V,V...
A Modbus exception prints "<op> A exception N", any other failure "<op> A error TEXT".
"""
import sys

from pymodbus.client import ModbusSerialClient, ModbusTcpClient
from pymodbus.framer.rtu_framer import ModbusRtuFramer
from pymodbus.exceptions import ModbusException
from pymodbus.pdu import ExceptionResponse


def request(client, op, address, arg, unit):
    if op in ("rc", "rd", "rh", "ri"):
        call = {"rc": client.read_coils, "rd": client.read_discrete_inputs,
                "rh": client.read_holding_registers, "ri": client.read_input_registers}[op]
        return call(address, int(arg, 0), slave=unit)
    if op == "wc":
        return client.write_coil(address, int(arg, 0) != 0, slave=unit)
    if op == "wr":
        return client.write_register(address, int(arg, 0), slave=unit)
    if op == "wcs":
        return client.write_coils(address, [int(v, 0) != 0 for v in arg.split(",")], slave=unit)
    if op == "wrs":
        return client.write_registers(address, [int(v, 0) for v in arg.split(",")], slave=unit)
    raise ValueError(op)


def run(client, operation, unit):
    op, _, rest = operation.partition(":")
    if op == "unit":
        print("unit %d" % int(rest))
        return int(rest)
    address_text, _, arg = rest.partition(":")
    address = int(address_text, 0)
    try:
        result = request(client, op, address, arg, unit)
    except ModbusException as error:
        # A slave that drops a silent connection (its idle time-out) closes it under the read.
        print("%s %d error %s" % (op, address, error))
        return unit
    if isinstance(result, ExceptionResponse):
        print("%s %d exception %d" % (op, address, result.exception_code))
    elif result is None or result.isError():
        print("%s %d error %s" % (op, address, result))
    elif op in ("rc", "rd"):
        print("%s %d %s" % (op, address, " ".join(str(int(b)) for b in result.bits[:int(arg, 0)])))
    elif op in ("rh", "ri"):
        print("%s %d %s" % (op, address, " ".join(str(v) for v in result.registers)))
    else:
        print("%s %d ok" % (op, address))
    return unit


def main(argv):
    if len(argv) >= 3 and argv[1] == "tcp":
        client = ModbusTcpClient("127.0.0.1", port=int(argv[2]), timeout=2, retries=0)
        ops = argv[3:]
    elif len(argv) >= 3 and argv[1] == "rtu-over-tcp":
        client = ModbusTcpClient("127.0.0.1", port=int(argv[2]), framer=ModbusRtuFramer, timeout=2, retries=0)
        ops = argv[3:]
    elif len(argv) >= 5 and argv[1] == "rtu":
        client = ModbusSerialClient(port=argv[2], framer=ModbusRtuFramer, baudrate=int(argv[3]),
                                    parity=argv[4], timeout=2, retries=0)
        ops = argv[5:]
    else:
        sys.stderr.write("usage: slave_pymodbus_client.py tcp PORT OP... | rtu-over-tcp PORT OP... | rtu DEVICE BAUD PARITY OP...\n")
        return 2
    if not client.connect():
        sys.stderr.write("connect failed\n")
        return 3
    unit = 1
    try:
        for operation in ops:
            unit = run(client, operation, unit)
            sys.stdout.flush()
    finally:
        client.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
