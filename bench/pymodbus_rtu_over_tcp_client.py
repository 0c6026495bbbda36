#!/usr/bin/python3
"""The reference client of the RTU-over-TCP benchmark row: pymodbus (Debian's python3-pymodbus)
with its RTU framer on a TCP socket, reading 10 holding registers in a loop.

usage: pymodbus_rtu_over_tcp_client.py PORT SECONDS    prints transactions/s
"""
import sys
import time

from pymodbus.client import ModbusTcpClient
from pymodbus.transaction import ModbusRtuFramer


def main(argv):
    client = ModbusTcpClient("127.0.0.1", port=int(argv[1]), framer=ModbusRtuFramer, timeout=2, retries=0)
    if not client.connect():
        sys.stderr.write("connect failed\n")
        return 1
    seconds = float(argv[2])
    count = 0
    start = time.monotonic()
    while time.monotonic() - start < seconds and count < 10000000:
        result = client.read_holding_registers(0, 10, slave=1)
        if result.isError() or len(result.registers) != 10:
            sys.stderr.write("transaction failed\n")
            return 1
        count += 1
    print("%.0f" % (count / (time.monotonic() - start)))
    client.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
