#!/usr/bin/env python3
"""A Modbus RTU line made of three pseudo-terminals, for trying the bus monitor without hardware.

    rtu_bus.py DIR [SECONDS]

makes DIR/master, DIR/slave and DIR/listener (links to three ptys). What a program on DIR/master
writes reaches DIR/slave and the other way round, and both directions are copied to DIR/listener,
where `kestrel-cli monitor` listens. Bytes written on DIR/listener are counted and dropped; the
count is printed at the end ("listener sent N bytes"). Runs for SECONDS (default 600) or until
SIGINT/SIGTERM.
"""
import os
import select
import signal
import sys
import time
import tty


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    folder = sys.argv[1]
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 600.0
    os.makedirs(folder, exist_ok=True)
    ends = []
    for name in ("master", "slave", "listener"):
        master, slave = os.openpty()
        tty.setraw(master)
        tty.setraw(slave)
        link = os.path.join(folder, name)
        if os.path.lexists(link):
            os.remove(link)
        os.symlink(os.ttyname(slave), link)
        ends.append((master, slave, link))
    stop = []
    signal.signal(signal.SIGTERM, lambda *_: stop.append(1))
    signal.signal(signal.SIGINT, lambda *_: stop.append(1))
    print("bus ready: %s" % " ".join(link for _, _, link in ends), flush=True)
    from_listener = 0
    deadline = time.monotonic() + seconds
    masters = [m for m, _, _ in ends]
    while not stop and time.monotonic() < deadline:
        try:
            ready, _, _ = select.select(masters, [], [], 0.05)
        except InterruptedError:
            continue
        for fd in ready:
            data = os.read(fd, 4096)
            i = masters.index(fd)
            if i == 2:
                from_listener += len(data)
                continue
            os.write(masters[1 - i], data)
            os.write(masters[2], data)
    for master, slave, link in ends:
        os.close(master)
        os.close(slave)
        os.remove(link)
    print("listener sent %d bytes" % from_listener, flush=True)


if __name__ == "__main__":
    main()
