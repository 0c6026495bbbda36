#!/usr/bin/env python3
"""Writes the seed corpus of every fuzz target into fuzz/corpus/<target>/.

The seeds are well-formed exchanges (the inputs a polite peer, a valid file or a sensible detail
would give) plus a few typical broken ones; the fuzzer mutates from there. Run it again after
changing an input format; the files are kept in the repository.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def crc16(data):
    crc = 0xFFFF
    for b in data:
        crc ^= b
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc


def chunk(data, crc=False):
    """One chunk of the fake wire: a length byte (high bit: the harness appends the CRC)."""
    out = b""
    while True:
        part, data = data[:127], data[127:]
        out += bytes([len(part) | (0x80 if crc and not data else 0)]) + part
        if not data:
            return out


def mbap(tid, unit, pdu):
    return struct.pack(">HHH", tid, 0, len(pdu) + 1) + bytes([unit]) + pdu


def write(target, name, data):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def pdu_response(op, count):
    """A normal response PDU (function code first) for each master operation."""
    fc = [1, 2, 3, 4, 5, 6, 15, 16, 23, 24][op]
    if fc in (1, 2):
        n = (count + 7) // 8
        return bytes([fc, n]) + bytes(range(n))
    if fc in (3, 4, 23):
        return bytes([fc, 2 * count]) + b"".join(struct.pack(">H", i * 257) for i in range(count))
    if fc in (5, 6, 15, 16):
        return bytes([fc]) + struct.pack(">HH", 10, count)
    return bytes([fc]) + struct.pack(">HH", 2 + 2 * count, count) + b"".join(struct.pack(">H", i) for i in range(count))


def master_seeds():
    count = 4
    for op in range(10):
        fc = [1, 2, 3, 4, 5, 6, 15, 16, 23, 24][op]
        head_tcp = bytes([0x08, op]) + struct.pack(">HH", 10, count)
        head_rtu = bytes([0x09, op]) + struct.pack(">HH", 10, count)
        pdu = pdu_response(op, count)
        frame = mbap(0, 1, pdu)
        write("master", f"tcp_fc{fc:02d}_ok", head_tcp + chunk(frame))
        write("master", f"tcp_fc{fc:02d}_split", head_tcp + chunk(frame[:3]) + chunk(frame[3:7]) + chunk(frame[7:]))
        write("master", f"tcp_fc{fc:02d}_exception", head_tcp + chunk(mbap(0, 1, bytes([fc | 0x80, 2]))))
        write("master", f"tcp_fc{fc:02d}_short", head_tcp + chunk(frame[:8]))
        write("master", f"tcp_fc{fc:02d}_silent", bytes([0x0A, op]) + struct.pack(">HH", 10, count))
        write("master", f"rtu_fc{fc:02d}_ok", head_rtu + chunk(bytes([1]) + pdu, crc=True))
        write("master", f"rtu_fc{fc:02d}_exception", head_rtu + chunk(bytes([1, fc | 0x80, 2]), crc=True))
        write("master", f"rtu_fc{fc:02d}_bad_crc", head_rtu + chunk(bytes([1]) + pdu + b"\x00\x00"))
    # The FC03 length repair: an MBAP length too small for the byte count, the rest coming later.
    body = bytes([1, 3, 8]) + bytes(range(8))
    lying = struct.pack(">HHH", 0, 0, 3) + body
    write("master", "tcp_fc03_length_repair", bytes([0x08, 2]) + struct.pack(">HH", 0, 4) + chunk(lying))
    write("master", "tcp_fc03_byte_count_too_large",
          bytes([0x08, 2]) + struct.pack(">HH", 0, 4) + chunk(struct.pack(">HHH", 0, 0, 5) + bytes([1, 3, 250, 0, 1])))


def slave_head(inject=False):
    return bytes([0x02 | (1 if inject else 0), 4]) + struct.pack(">HH", 100, 110)


def requests():
    """One request PDU of every function code the slave serves, and an unknown one."""
    return [
        bytes([1]) + struct.pack(">HH", 0, 10),
        bytes([2]) + struct.pack(">HH", 0, 10),
        bytes([3]) + struct.pack(">HH", 0, 10),
        bytes([4]) + struct.pack(">HH", 0, 10),
        bytes([5]) + struct.pack(">HH", 3, 0xFF00),
        bytes([6]) + struct.pack(">HH", 4, 1234),
        bytes([15]) + struct.pack(">HHB", 0, 10, 2) + b"\xff\x03",
        bytes([16]) + struct.pack(">HHB", 0, 2, 4) + b"\x00\x01\x00\x02",
        bytes([0x2B, 0x0E, 0x01, 0x00]),
    ]


def slave_tcp_seeds():
    session = b"".join(mbap(i, 1, pdu) for i, pdu in enumerate(requests()))
    write("slave_tcp", "session_all_fcs", slave_head() + chunk(session))
    write("slave_tcp", "session_split_bytewise", slave_head() + b"".join(chunk(session[i:i + 1]) for i in range(len(session))))
    write("slave_tcp", "session_injected", slave_head(inject=True) + chunk(mbap(0, 1, bytes([3]) + struct.pack(">HH", 100, 2))))
    write("slave_tcp", "unit_zero_and_foreign", slave_head() + chunk(mbap(0, 0, requests()[2]) + mbap(1, 7, requests()[2])))
    for length in (0, 1, 260, 261, 65535):
        write("slave_tcp", f"mbap_length_{length}", slave_head() + chunk(struct.pack(">HHH", 0, 0, length) + b"\x01\x03\x00\x00\x00\x01"))
    write("slave_tcp", "close_mid_frame", slave_head() + chunk(mbap(0, 1, requests()[2])[:9]))
    for i, pdu in enumerate(requests()):
        write("slave_tcp", f"fc_{pdu[0]:02x}", slave_head() + chunk(mbap(i, 1, pdu)))


def slave_rtu_seeds():
    for i, pdu in enumerate(requests()):
        write("slave_rtu", f"fc_{pdu[0]:02x}", slave_head() + chunk(bytes([1]) + pdu, crc=True))
    write("slave_rtu", "all_fcs", slave_head() + b"".join(chunk(bytes([1]) + pdu, crc=True) for pdu in requests()))
    write("slave_rtu", "bad_crc", slave_head() + chunk(bytes([1]) + requests()[2] + b"\x00\x00"))
    write("slave_rtu", "other_unit_and_zero", slave_head() + chunk(bytes([7]) + requests()[2], crc=True) + chunk(bytes([0]) + requests()[2], crc=True))
    write("slave_rtu", "injected", slave_head(inject=True) + chunk(bytes([1, 3]) + struct.pack(">HH", 105, 1), crc=True))
    write("slave_rtu", "long_burst", slave_head() + chunk(bytes([1]) + bytes(300)))


def detail_json(i, dtype, order, extra=""):
    return ("        {\n"
            f"          \"id\": {i},\n          \"name\": \"Detail {i}{extra}\",\n          \"unit\": \"\u00b0C\",\n"
            f"          \"dataType\": \"{dtype}\",\n          \"arraySize\": 2,\n          \"registerAddress\": {100 + i},\n"
            f"          \"functionCode\": 3,\n          \"byteOrder\": \"{order}\",\n          \"scale\": 0.1,\n"
            "          \"offset\": -50,\n          \"warnLow\": 0,\n          \"warnHigh\": 90,\n          \"alarmLow\": 1e-05,\n"
            "          \"alarmHigh\": 1e+06,\n          \"alarmOnChange\": true,\n          \"widgetType\": \"LED\"\n        }")


def structure_json(i, details):
    return ("    {\n"
            f"      \"id\": {i},\n      \"name\": \"Pumpe \\\"{i}\\\" \\\\ A\\nB\",\n      \"description\": \"tab\\there\",\n"
            "      \"ip\": \"127.0.0.1\",\n      \"port\": 1502,\n      \"unitId\": 1,\n      \"rtuOverTcp\": false,\n"
            "      \"details\": [\n" + ",\n".join(details) + "\n      ]\n    }")


def structures_seeds():
    # Each seed fits the 2,048 bytes tools/fuzz.sh allows a structures input: two details a
    # structure, so the twelve data types take six seeds.
    types = ["BOOLEAN", "BYTE", "INT16", "UINT16", "INT32", "UINT32", "INT64", "UINT64", "FLOAT32", "FLOAT64", "STRING", "RAW"]
    orders = ["BIG_ENDIAN", "LITTLE_ENDIAN", "BIG_ENDIAN_SWAP", "LITTLE_ENDIAN_SWAP"]
    details = [detail_json(i + 1, t, orders[i % 4]) for i, t in enumerate(types)]

    def store(*structures):
        return "{\n  \"structures\": [\n" + ",\n".join(structures) + "\n  ]\n}\n"

    full = store(structure_json(5, details[:2]), structure_json(9, []))
    write("structures", "two_structures", full.encode())
    for k in range(1, 6):
        write("structures", f"types_{k}", store(structure_json(5, details[2 * k:2 * k + 2])).encode())
    write("structures", "empty_store", b"{\n  \"structures\": [\n\n  ]\n}\n")
    write("structures", "empty", b"")
    write("structures", "braces", b"{}")
    write("structures", "no_ip", full.replace("\"ip\"", "\"xp\"").encode())
    write("structures", "bad_number", full.replace("\"port\": 1502", "\"port\": abc").encode())
    write("structures", "huge_number", full.replace("\"unitId\": 1", "\"unitId\": 99999999999").encode())
    write("structures", "unterminated", full[: len(full) // 2].encode())


def decode_seeds():
    regs = struct.pack(">HHHH", 0x1234, 0x5678, 0x9ABC, 0xDEF0)
    for t in range(12):
        for order in range(4):
            head = bytes([t, order]) + struct.pack(">h", 2) + struct.pack("<d", 0.1) + struct.pack("<d", -50.0)
            write("decode", f"type{t:02d}_order{order}", head + bytes([2]) + b"kW" + regs)
        unscaled = bytes([t, 0]) + struct.pack(">h", 1) + struct.pack("<d", 1.0) + struct.pack("<d", 0.0)
        write("decode", f"type{t:02d}_unscaled", unscaled + bytes([0]) + regs[:2])
    write("decode", "string_abcd", bytes([10, 0]) + struct.pack(">h", 3) + struct.pack("<d", 1.0) + struct.pack("<d", 0.0)
          + bytes([0]) + struct.pack(">HHH", 0x4142, 0x0043, 0x4400))
    write("decode", "nan_scale", bytes([3, 0]) + struct.pack(">h", 1) + struct.pack("<d", float("nan")) + struct.pack("<d", 0.0)
          + bytes([0]) + regs)


def rtu(unit, fc, data):
    frame = bytes([unit, fc]) + bytes(data)
    return frame + struct.pack("<H", crc16(frame))


def monitor_read(data, pause=80, decide_later=False):
    """One read of the monitor harness: length (high bit: decide 150 ms later), pause in 250 us."""
    return bytes([len(data) | (0x80 if decide_later else 0), pause]) + data


def monitor_seeds():
    exchanges = [
        (rtu(1, 3, [0, 0, 0, 2]), rtu(1, 3, [4, 0, 10, 0, 20])),
        (rtu(1, 6, [0, 1, 0, 3]), rtu(1, 0x86, [2])),
        (rtu(17, 16, [0, 1, 0, 2, 4, 0, 10, 1, 2]), rtu(17, 16, [0, 1, 0, 2])),
        (rtu(2, 8, [0, 0, 0xA5, 0x37]), rtu(2, 8, [0, 0, 0xA5, 0x37])),
        (rtu(17, 43, [14, 1, 0]), rtu(17, 43, [14, 1, 1, 0, 0, 1, 0, 3]) ),
        (rtu(2, 7, []), rtu(2, 7, [0x6D])),
        (rtu(17, 24, [4, 0xDE]), rtu(17, 24, [0, 6, 0, 2, 1, 0xB8, 0x12, 0x84])),
    ]
    gaps = b"".join(monitor_read(r) + monitor_read(a) for r, a in exchanges)
    write("monitor", "every_code_with_gaps", gaps)
    stream = b"".join(r + a for r, a in exchanges)
    write("monitor", "back_to_back", monitor_read(stream[:127], 0) + monitor_read(stream[127:], 0, True))
    split = b"".join(monitor_read(f[:3], 8) + monitor_read(f[3:], 8) for r, a in exchanges for f in (r, a))
    write("monitor", "split_frames", split)
    bad = bytearray(exchanges[0][1])
    bad[-1] ^= 0x5A
    write("monitor", "noise_and_bad_crc", monitor_read(b"\x00") + monitor_read(exchanges[0][0]) + monitor_read(b"\xff\xfe")
          + monitor_read(bytes(bad)) + monitor_read(exchanges[1][0] + b"\x00" + exchanges[1][1], 80, True))
    write("monitor", "unknown_code", monitor_read(rtu(5, 0x41, [1, 2, 3])) + monitor_read(exchanges[0][0][:5], 80, True))


if __name__ == "__main__":
    master_seeds()
    slave_tcp_seeds()
    slave_rtu_seeds()
    structures_seeds()
    decode_seeds()
    monitor_seeds()
