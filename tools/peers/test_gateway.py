#!/usr/bin/python3
"""A small Modbus gateway for the scanner's tests and benchmarks (plain sockets, no pymodbus).

It plays a serial-to-Ethernet gateway with a few devices behind it: a request for a unit id
that has a device is answered from that device's tables; any other unit id gets exception 0x0B
(gateway target device failed to respond), as such gateways do, or no answer with --silent-absent.

    test_gateway.py (--tcp PORT | --rtu-over-tcp PORT) [--device UNIT[:RULES]]... [--silent-absent]
                    [--close-after N] [--clients N] [--port-file FILE] [--lifetime S]

PORT 0 picks a free port; it is written to --port-file (and printed on stdout) once listening.
RULES say which holding/input register addresses a device refuses (exception 2 for a read that
touches one): "refuse=17,500,9000" refuses those addresses; "only=100-109,500-500" refuses all
but those ranges; "fc=N" answers every read of function code N with exception 1. Register i of
unit u holds (u * 1000 + i) % 65536; coil and discrete input i are i % 2. Several rules join
with '/': "3:refuse=17,500/fc=4". --close-after N closes every connection after N requests
(a gateway that drops its clients); --clients N stops listening after N clients. One client at a
time is served, in order.
"""
import argparse
import os
import socket
import sys
import time


def crc16(data):
    crc = 0xFFFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc


def with_crc(frame):
    crc = crc16(frame)
    return bytes(frame) + bytes([crc & 0xFF, crc >> 8])


class Device:
    def __init__(self, unit, rules):
        self.unit = unit
        self.refused = set()
        self.only = None
        self.refused_fcs = set()
        for part in filter(None, rules.split("/")):
            key, _, value = part.partition("=")
            if key == "refuse":
                self.refused.update(int(v) for v in value.split(","))
            elif key == "only":
                self.only = [tuple(int(x) for x in r.split("-")) for r in value.split(",")]
            elif key == "fc":
                self.refused_fcs.add(int(value))
            else:
                raise ValueError(part)

    def readable(self, address):
        if address in self.refused:
            return False
        if self.only is not None:
            return any(first <= address <= last for first, last in self.only)
        return True

    def answer(self, fc, pdu):
        """The response PDU (function code first) for a request PDU's data."""
        if fc in self.refused_fcs or fc not in (1, 2, 3, 4, 5, 6, 15, 16):
            return bytes([fc | 0x80, 1])
        if len(pdu) < 4:
            return bytes([fc | 0x80, 3])
        start = (pdu[0] << 8) | pdu[1]
        quantity = (pdu[2] << 8) | pdu[3]
        if fc in (5, 6, 15, 16):
            return bytes([fc]) + pdu[:4]
        limit = 2000 if fc in (1, 2) else 125
        if quantity < 1 or quantity > limit or start + quantity > 65536:
            return bytes([fc | 0x80, 3])
        if fc in (3, 4) and not all(self.readable(a) for a in range(start, start + quantity)):
            return bytes([fc | 0x80, 2])
        if fc in (1, 2):
            packed = bytearray((quantity + 7) // 8)
            for i in range(quantity):
                if (start + i) % 2:
                    packed[i // 8] |= 1 << (i % 8)
            return bytes([fc, len(packed)]) + bytes(packed)
        words = bytearray()
        for a in range(start, start + quantity):
            value = (self.unit * 1000 + a) % 65536
            words += bytes([value >> 8, value & 0xFF])
        return bytes([fc, len(words)]) + bytes(words)


def request_length(frame):
    """The length of an RTU request from its first bytes, or None when more are needed."""
    if len(frame) < 2:
        return None
    fc = frame[1]
    if fc in (15, 16):
        return 9 + frame[6] if len(frame) >= 7 else None
    return 8


class Gateway:
    def __init__(self, args):
        self.rtu = args.rtu_over_tcp is not None
        self.devices = {}
        for text in args.device:
            unit_text, _, rules = text.partition(":")
            self.devices[int(unit_text)] = Device(int(unit_text), rules)
        self.silent_absent = args.silent_absent
        self.close_after = args.close_after

    def respond(self, unit, fc, pdu):
        device = self.devices.get(unit)
        if device is None:
            return None if self.silent_absent else bytes([fc | 0x80, 0x0B])
        return device.answer(fc, pdu)

    def serve(self, client):
        buffer = b""
        served = 0
        while True:
            needed = 6 if not self.rtu else request_length(buffer)
            if not self.rtu and len(buffer) >= 6:
                needed = 6 + ((buffer[4] << 8) | buffer[5])
            while needed is None or len(buffer) < needed:
                chunk = client.recv(512)
                if not chunk:
                    return
                buffer += chunk
                if self.rtu:
                    needed = request_length(buffer)
                elif len(buffer) >= 6:
                    needed = 6 + ((buffer[4] << 8) | buffer[5])
            frame, buffer = buffer[:needed], buffer[needed:]
            if self.rtu:
                if crc16(frame[:-2]) != (frame[-2] | (frame[-1] << 8)):
                    continue
                unit, fc, pdu = frame[0], frame[1], frame[2:-2]
            else:
                unit, fc, pdu = frame[6], frame[7], frame[8:]
            answer = self.respond(unit, fc, pdu)
            if answer is not None:
                if self.rtu:
                    client.sendall(with_crc(bytes([unit]) + answer))
                else:
                    client.sendall(frame[0:4] + len(answer + b"x").to_bytes(2, "big") + bytes([unit]) + answer)
            served += 1
            if self.close_after and served >= self.close_after:
                return


def main():
    parser = argparse.ArgumentParser()
    group = parser.add_mutually_exclusive_group(required=True)
    group.add_argument("--tcp", type=int)
    group.add_argument("--rtu-over-tcp", type=int)
    parser.add_argument("--device", action="append", default=[])
    parser.add_argument("--silent-absent", action="store_true")
    parser.add_argument("--close-after", type=int, default=0)
    parser.add_argument("--port-file")
    parser.add_argument("--lifetime", type=float, default=120.0)
    parser.add_argument("--clients", type=int, default=0)
    args = parser.parse_args()
    gateway = Gateway(args)
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", args.tcp if args.tcp is not None else args.rtu_over_tcp))
    listener.listen(5)
    port = listener.getsockname()[1]
    if args.port_file:
        with open(args.port_file + ".tmp", "w") as f:
            f.write("%d\n" % port)
        os.rename(args.port_file + ".tmp", args.port_file)
    print("listening on port %d" % port, flush=True)
    deadline = time.monotonic() + args.lifetime
    clients = 0
    while time.monotonic() < deadline and not (args.clients and clients >= args.clients):
        clients += 1
        listener.settimeout(max(0.1, deadline - time.monotonic()))
        try:
            client, _ = listener.accept()
        except socket.timeout:
            break
        if args.clients and clients >= args.clients:
            listener.close()  # the last client: from now on a connect is refused, not left in the backlog
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        client.settimeout(max(0.1, deadline - time.monotonic()))
        try:
            gateway.serve(client)
        except (OSError, socket.timeout):
            pass
        finally:
            client.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
