#!/usr/bin/env bash
# kestrel-cli.exe monitor under Wine on a COM port mapped onto one end of a socat pty pair; this
# script plays the bus on the other end: gaps, two frames in one write, noise, a bad CRC, an
# unanswered request, an exception. The frame lines and the statistics must come out exactly, and
# nothing may arrive at our end of the line.
#   monitor_under_wine.sh KESTREL_CLI_EXE SOURCE_DIR
set -u
exe=$1
root=$2
export WINEPREFIX=${KESTREL_WINEPREFIX:-$root/build/wine-prefix}
dir=$(mktemp -d /tmp/kestrel-monitor-wine-XXXXXX)
socat_pid=""
monitor_pid=""
com=""
cleanup() {
  [ -n "$monitor_pid" ] && kill "$monitor_pid" 2>/dev/null
  [ -n "$socat_pid" ] && kill "$socat_pid" 2>/dev/null
  [ -n "$com" ] && rm -f "$WINEPREFIX/dosdevices/$com"
  rm -rf "$dir"
}
trap cleanup EXIT

timeout 120 socat pty,raw,echo=0,link="$dir/ttyA" pty,raw,echo=0,link="$dir/ttyB" 2>/dev/null &
socat_pid=$!
for _ in $(seq 1 100); do [ -e "$dir/ttyA" ] && [ -e "$dir/ttyB" ] && break; sleep 0.02; done
# COM200 and up: clear of the pairs tools/wine-run.sh hands out (COM20 to COM199).
mkdir -p "$WINEPREFIX/dosdevices"
com="com$((200 + $$ % 50))"
ln -sfn "$dir/ttyA" "$WINEPREFIX/dosdevices/$com"
# Our end of the line: held open for the whole run, so what the monitor might send stays readable.
exec 7<>"$dir/ttyB"

timeout 100 "$root/tools/wine-run.sh" "$exe" --lang en monitor --rtu "${com^^}" --baud 19200 --duration 6 \
  >"$dir/out" 2>"$dir/err" &
monitor_pid=$!
for _ in $(seq 1 1500); do grep -q "Listening on" "$dir/err" 2>/dev/null && break; sleep 0.02; done
if ! grep -q "Listening on ${com^^} @ 19200 Baud ..." "$dir/err"; then
  echo "the monitor did not start listening:"; cat "$dir/err"; exit 1
fi

send() { printf "$1" >&7; sleep 0.05; }
send '\x01\x03\x00\x00\x00\x02\xC4\x0B'
send '\x01\x03\x04\x00\x0A\x00\x14\xDA\x3E'
send '\x01\x06\x00\x01\x00\x03\x98\x0B\x01\x86\x02\xC3\xA1'
send '\x00\x11\x10\x00\x01\x00\x02\x04\x00\x0A\x01\x02\xC6\xF0'
send '\x11\x10\x00\x01\x00\x02\x12\x98'
send '\x01\x03\x00\x00\x00\x02\xC4\x0B'
send '\x01\x03\x04\x00\x0A\x00\x14\xDA\x64'
send '\x05\x04\x00\x00\x00\x01\x30\x4E'
send '\x01\x01\x00\x13\x00\x0A\x4D\xC8'
send '\x01\x01\x02\xCD\x01\x2C\xAC'

wait "$monitor_pid"
status=$?
monitor_pid=""
actual=$(tr -d '\r' <"$dir/out" | sed -E -e 's/^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\.[0-9]{3}Z //' \
  -e 's/, [0-9]+\.[0-9] ms \|/ |/' -e 's/;[0-9]+\.[0-9];[0-9]+\.[0-9];[0-9]+\.[0-9]$/;T;T;T/')
expected='request unit 1 FC03 Read Holding Registers, address 0, count 2: ok | 01 03 00 00 00 02 C4 0B
response unit 1 FC03 Read Holding Registers, count 2, values 10 20: ok | 01 03 04 00 0A 00 14 DA 3E
request unit 1 FC06 Write Single Register, address 1, values 3: ok | 01 06 00 01 00 03 98 0B
response unit 1 FC06 Write Single Register, exception 2: exception | 01 86 02 C3 A1
request unit 17 FC16 Write Multiple Registers, address 1, count 2, values 10 258: ok | 11 10 00 01 00 02 04 00 0A 01 02 C6 F0
response unit 17 FC16 Write Multiple Registers, address 1, count 2: ok | 11 10 00 01 00 02 12 98
request unit 1 FC03 Read Holding Registers, address 0, count 2: unanswered | 01 03 00 00 00 02 C4 0B
response unit 1 FC03 Read Holding Registers: crc_error | 01 03 04 00 0A 00 14 DA 64
request unit 5 FC04 Read Input Registers, address 0, count 1: unanswered | 05 04 00 00 00 01 30 4E
request unit 1 FC01 Read Coils, address 19, count 10: ok | 01 01 00 13 00 0A 4D C8
response unit 1 FC01 Read Coils, count 10, values 1 0 1 1 0 0 1 1 1 0: ok | 01 01 02 CD 01 2C AC
unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms
1;4;3;1;1;1;T;T;T
5;1;0;0;1;0;;;
17;1;1;0;0;0;T;T;T
noise bytes skipped: 1'
result=0
if [ "$status" != 0 ]; then echo "exit code $status"; cat "$dir/err"; result=1; fi
if [ "$actual" != "$expected" ]; then
  echo "output differs; got:"; echo "$actual"; echo "expected:"; echo "$expected"; result=1
fi
sent=$(timeout 0.5 cat <&7 | od -An -tx1)
if [ -n "$sent" ]; then echo "the monitor wrote to the line:$sent"; result=1; fi
[ "$result" = 0 ] && echo "kestrel-cli.exe monitor: 11 frames, their pairings and statistics as expected, nothing sent"
exit $result
