#!/usr/bin/env bash
# The whole comparison with libmodbus in one command: builds the benchmarks (linux-release preset,
# Release, KESTREL_BUILD_BENCH=ON), runs every row and prints one table of ours / reference / ratio.
#
#   1 master   Kestrel's ModbusClient vs a libmodbus client on the same server (a libmodbus server,
#              then Kestrel's slave), four requests, trace log recording and a log callback on
#   2 slave    one libmodbus client against Kestrel's slave vs against a libmodbus server
#   3 cli      kestrel-cli read --repeat N vs a libmodbus client printing N reads; kestrel-cli slave
#              vs a libmodbus server; output to files; how soon the output reaches a reader
#   4 polling  1,000 UINT16 details through the polling engine vs bare FC03 reads
#   5 RTU      over a pseudo-terminal pair (socat) against a libmodbus RTU server
#   6 memory   trace log over 1,000,000 transactions, bytes per recording entry, slave churn
#   7 window   the real main window under Wine (its own Xvfb, tools/wine-gui-run.sh): 100,000 lines
#              appended to the protocol log, the first 1,000 appends against the last 1,000, and a
#              Diagnostics refresh with the trace log at its cap of 10,000 frames. Needs the Windows
#              build (cmake --preset windows, in build/windows) and Wine; without them the row says so.
#   8 RTU over TCP  our master (FC03 x 10) against our RTU-over-TCP slave and against pymodbus's
#              RTU-over-TCP server, with a pymodbus RTU-over-TCP client on the same servers as reference
#   9 scanner  kestrel-cli scan of 247 ids at a gateway with 3 devices (tools/peers/test_gateway.py):
#              absent ids answered with exception 0x0B, and absent ids silent (time-out bound, at
#              --timeout BENCH_SCAN_TIMEOUT ms, default 20); requests and time to map 10,000 registers
#              with five refused addresses, against 10,000 single-register reads (address by address);
#              times are the wall time of each kestrel-cli run
#  10 mqtt     kestrel-cli poll --mqtt: 1,000 details every 100 ms bridged to a local mosquitto at QoS 0
#              and 1: messages/s delivered, cycle-end-to-receipt delay, CPU per message, RSS over the
#              run (tools/bench_mqtt.sh, which also runs alone; BENCH_MQTT_SECONDS, default 60, is
#              the run per QoS; 600 is the ten-minute memory run)
#  11 monitor  the bus monitor's frame recovery on a continuous stream without any gap (the worst
#              case for a silence-based splitter): frames recovered per second, the share recovered
#              exactly and CPU per frame, in-process (also with a noise byte every 10 frames) and
#              through kestrel-cli monitor listening on a pty that a burst is written to
# Rows 1 and 2 also show the floor: a client and a server that make only the two system calls a
# transaction needs and nothing else; their ratio against libmodbus is the most any master or
# slave can reach on this machine.
#
# Method: every process of a row is pinned to the same vCPU (taskset -c 0); the two sides of a
# comparison run alternately (A B A B ...) in the same rounds; figures are medians of the rounds,
# with min and max. Absolute numbers on a 2-vCPU machine move with its load; the ratios do not.
#
# Environment: BENCH_BUILD_DIR (default build/linux-release), BENCH_ROUNDS (default 5),
# BENCH_SECONDS per throughput run (default 0.7), BENCH_CLI_READS (default 20000),
# BENCH_TRACE_TRANSACTIONS (default 1000000), BENCH_CHURN (default 10000), BENCH_OUT (a file that
# also receives the table); for row 7 BENCH_WINDOW_BUILD_DIR (default build/windows),
# BENCH_MONITOR_FRAMES (default 1000000, in-process) and BENCH_MONITOR_PTY_FRAMES (default 100000);
# BENCH_WINDOW_LINES (default 100000), BENCH_WINDOW_ROUNDS (default 1) and BENCH_WINDOW_SECONDS, the
# most a round of appends may take (default 60; a round that runs out stops early and the row says
# how many lines it appended).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${BENCH_BUILD_DIR:-build/linux-release}
rounds=${BENCH_ROUNDS:-5}
seconds=${BENCH_SECONDS:-0.7}
cli_reads=${BENCH_CLI_READS:-20000}
trace_n=${BENCH_TRACE_TRANSACTIONS:-1000000}
churn=${BENCH_CHURN:-10000}
out=${BENCH_OUT:-}
window_build=${BENCH_WINDOW_BUILD_DIR:-build/windows}
window_lines=${BENCH_WINDOW_LINES:-100000}
window_rounds=${BENCH_WINDOW_ROUNDS:-1}
window_seconds=${BENCH_WINDOW_SECONDS:-60}
monitor_frames=${BENCH_MONITOR_FRAMES:-1000000}
monitor_pty_frames=${BENCH_MONITOR_PTY_FRAMES:-100000}
scan_timeout=${BENCH_SCAN_TIMEOUT:-20}
started=$(date +%s)

bash tools/setup.sh >/dev/null
cmake --preset linux-release -B "$build" -DKESTREL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target kestrel-cli kestrel_bench_master kestrel_bench_slave kestrel_bench_polling \
  kestrel_bench_memory kestrel_bench_trace_memory kestrel_bench_raw_peer kestrel_bench_libmodbus_master \
  kestrel_bench_libmodbus_server kestrel_bench_rtu_over_tcp kestrel_bench_mqtt kestrel_bench_monitor >/dev/null
bin="$root/$build/bench"
cli="$root/$build/src/cli/kestrel-cli"

work=$(mktemp -d /tmp/kestrel-bench-XXXXXX)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

pin=()
if command -v taskset >/dev/null 2>&1; then pin=(taskset -c 0); fi

now_ns() { date +%s%N; }
median() { sort -g | awk '{a[NR]=$1} END {if (NR == 0) {print 0} else print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'; }
spread() { sort -g "$1" | awk 'NR == 1 {lo = $1} {hi = $1} END {printf "%s-%s", lo, hi}'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { r = (b > 0) ? a / b : 0; printf (r < 0.1) ? "%.4f" : "%.2f", r }'; }
fmt() { awk -v v="$1" 'BEGIN { if (v >= 100) printf "%.0f", v; else printf "%.2f", v }'; }

# Waits until a server wrote its port file (bounded: 5 s).
wait_port() {
  for _ in $(seq 1 100); do [ -s "$1" ] && { cat "$1"; return 0; }; sleep 0.05; done
  echo "no port in $1" >&2
  return 1
}

table=$work/table
row() { printf '%-52s %18s %18s %7s\n' "$@" | tee -a "$table"; }
# A comparison row from two files of per-round figures (higher is better unless said otherwise).
compare_row() {
  local name=$1 ours=$2 ref=$3
  local mo mr
  mo=$(median <"$ours"); mr=$(median <"$ref")
  row "$name" "$(fmt "$mo") [$(spread "$ours")]" "$(fmt "$mr") [$(spread "$ref")]" "$(ratio "$mo" "$mr")"
}

# --- servers: libmodbus, Kestrel's slave, kestrel-cli slave (output to a file) ---
timeout 900 "${pin[@]}" "$bin/kestrel_bench_libmodbus_server" "$work/lib.port" 900 &
pids+=($!)
timeout 900 "${pin[@]}" "$bin/kestrel_bench_slave" "$work/kes.port" 900 &
pids+=($!)
timeout 900 "${pin[@]}" "$bin/kestrel_bench_raw_peer" server "$work/raw.port" 900 &
pids+=($!)
holding=$(seq -s, 0 999)
timeout 900 "${pin[@]}" "$cli" --lang en slave --tcp-port 0 --holding "0=$holding" >"$work/cli-slave.out" 2>"$work/cli-slave.err" &
pids+=($!)
lib_port=$(wait_port "$work/lib.port")
kes_port=$(wait_port "$work/kes.port")
raw_port=$(wait_port "$work/raw.port")
for _ in $(seq 1 100); do grep -q 'listening on port' "$work/cli-slave.err" && break; sleep 0.05; done
cli_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/cli-slave.err")

requests=(fc03x10 fc03x125 fc01x2000 fc16x123)
tps() { timeout 60 "${pin[@]}" "$@"; }

# --- 1 and 2: every request, six runs a round, alternated ---
for _ in $(seq 1 "$rounds"); do
  for r in "${requests[@]}"; do
    tps "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$lib_port" "$seconds" "$r" >>"$work/lib-lib-$r"
    tps "$bin/kestrel_bench_master" 127.0.0.1 "$lib_port" "$seconds" "$r" >>"$work/kes-lib-$r"
    tps "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$kes_port" "$seconds" "$r" >>"$work/lib-kes-$r"
    tps "$bin/kestrel_bench_master" 127.0.0.1 "$kes_port" "$seconds" "$r" >>"$work/kes-kes-$r"
    tps "$bin/kestrel_bench_raw_peer" client 127.0.0.1 "$lib_port" "$seconds" "$r" >>"$work/raw-lib-$r"
    tps "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$raw_port" "$seconds" "$r" >>"$work/lib-raw-$r"
  done
done

# --- 3: the command line, output to files ---
for _ in $(seq 1 "$rounds"); do
  t0=$(now_ns)
  timeout 120 "${pin[@]}" "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$lib_port" --reads "$cli_reads" >"$work/lib-reads.out"
  t1=$(now_ns)
  timeout 120 "${pin[@]}" "$cli" --lang en read --tcp "127.0.0.1:$lib_port" --fc 3 --address 0 --count 10 --repeat "$cli_reads" \
    >"$work/cli-read.out" 2>&1
  t2=$(now_ns)
  awk -v n="$cli_reads" -v a="$t0" -v b="$t1" 'BEGIN { printf "%.0f\n", n / ((b - a) / 1e9) }' >>"$work/cli-lib-read"
  awk -v n="$cli_reads" -v a="$t1" -v b="$t2" 'BEGIN { printf "%.0f\n", n / ((b - a) / 1e9) }' >>"$work/cli-kes-read"
  tps "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$lib_port" "$seconds" fc03x10 >>"$work/cli-lib-slave"
  tps "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$cli_port" "$seconds" fc03x10 >>"$work/cli-kes-slave"
done
lines_read=$(grep -c '^[0-9]' "$work/cli-read.out" || true)
lines_expected=$((cli_reads * 10))

# How soon output reaches a reader: the first read's values (behind a 200 ms response delay), and
# the slave's line for one request, seen in the files while the programs still run.
timeout 30 "${pin[@]}" "$cli" --lang en slave --tcp-port 0 --delay 200 --holding 0=7 >/dev/null 2>"$work/slow.err" &
pids+=($!)
for _ in $(seq 1 100); do grep -q 'listening on port' "$work/slow.err" && break; sleep 0.05; done
slow_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/slow.err")
t0=$(now_ns)
timeout 30 "${pin[@]}" "$cli" --lang en read --tcp "127.0.0.1:$slow_port" --fc 3 --address 0 --count 1 --repeat 2 \
  >"$work/live-read.out" 2>/dev/null &
reader=$!
pids+=($reader)
first_value_ms=""
for _ in $(seq 1 400); do
  if grep -qx 7 "$work/live-read.out"; then first_value_ms=$((($(now_ns) - t0) / 1000000)); break; fi
  sleep 0.005
done
wait "$reader" || true
before=$(grep -c 'FC03 read from' "$work/cli-slave.out" || true)
t0=$(now_ns)
timeout 30 "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$cli_port" --reads 1 >/dev/null
t1=$(now_ns)
slave_line_ms=""
for _ in $(seq 1 400); do
  if [ "$(grep -c 'FC03 read from' "$work/cli-slave.out" || true)" -gt "$before" ]; then
    slave_line_ms=$(awk -v a="$t1" -v b="$(now_ns)" 'BEGIN { printf "%.0f", (b - a) / 1e6 }'); break
  fi
  sleep 0.005
done

# --- 4: polling engine vs bare reads, against our slave ---
# A round is one cycle of 1,000 details (about 50 ms), so this row takes three times the rounds.
timeout 120 "${pin[@]}" "$bin/kestrel_bench_polling" 127.0.0.1 "$kes_port" "$((rounds * 3))" >"$work/polling"
val() { awk -v k="$1" '$1 == k { print $2 }' "$2"; }
field() { awk -v k="$1" -v f="$2" '$1 == k { print $f }' "$3"; }
# "median [min-max]" of a line "key median min max".
spread_field() { echo "$(field "$1" 2 "$2") [$(field "$1" 3 "$2")-$(field "$1" 4 "$2")]"; }

# --- 5: RTU over a pseudo-terminal pair ---
rtu_ok=0
if command -v socat >/dev/null 2>&1; then
  timeout 300 socat pty,raw,echo=0,link="$work/ttyA" pty,raw,echo=0,link="$work/ttyB" 2>/dev/null &
  pids+=($!)
  for _ in $(seq 1 100); do [ -e "$work/ttyA" ] && [ -e "$work/ttyB" ] && break; sleep 0.05; done
  timeout 300 "${pin[@]}" "$bin/kestrel_bench_libmodbus_server" --rtu "$work/ttyA" 300 &
  pids+=($!)
  sleep 0.3
  rtu_ok=1
  for _ in $(seq 1 "$rounds"); do
    timeout 60 "${pin[@]}" "$bin/kestrel_bench_libmodbus_master" --rtu "$work/ttyB" 50 >>"$work/rtu-lib" || rtu_ok=0
    timeout 60 "${pin[@]}" "$bin/kestrel_bench_master" --rtu "$work/ttyB" 10 >>"$work/rtu-kes" || rtu_ok=0
  done
fi

# --- 8: RTU over TCP: our master and a pymodbus client, each against our slave and pymodbus ---
python=/usr/bin/python3
rot_ok=0
if "$python" -c 'import pymodbus.server' 2>/dev/null; then
  timeout 300 "${pin[@]}" "$cli" --lang en slave --rtu-over-tcp-port 0 --holding "0=$holding" >/dev/null 2>"$work/rot-slave.err" &
  pids+=($!)
  for _ in $(seq 1 100); do grep -q 'listening on port' "$work/rot-slave.err" && break; sleep 0.05; done
  rot_kes_port=$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/rot-slave.err")
  rot_py_port=$("$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  timeout 300 "${pin[@]}" "$python" "$root/tools/peers/pymodbus_server.py" --rtu-over-tcp "$rot_py_port" >/dev/null 2>&1 &
  pids+=($!)
  for _ in $(seq 1 200); do "$python" -c "import socket; socket.create_connection(('127.0.0.1', $rot_py_port), 0.2)" 2>/dev/null && break; sleep 0.05; done
  rot_ok=1
  for _ in $(seq 1 "$rounds"); do
    tps "$bin/kestrel_bench_rtu_over_tcp" 127.0.0.1 "$rot_kes_port" "$seconds" >>"$work/rot-kes-kes" || rot_ok=0
    tps "$python" "$root/bench/pymodbus_rtu_over_tcp_client.py" "$rot_kes_port" "$seconds" >>"$work/rot-py-kes" || rot_ok=0
    tps "$bin/kestrel_bench_rtu_over_tcp" 127.0.0.1 "$rot_py_port" "$seconds" >>"$work/rot-kes-py" || rot_ok=0
    tps "$python" "$root/bench/pymodbus_rtu_over_tcp_client.py" "$rot_py_port" "$seconds" >>"$work/rot-py-py" || rot_ok=0
  done
fi

# --- 9: the scanner against the test gateway (one run each: the figures are times and counts) ---
gateway() {
  local name=$1; shift
  timeout 120 "${pin[@]}" "$python" "$root/tools/peers/test_gateway.py" --port-file "$work/$name.port" --lifetime 120 "$@" \
    >/dev/null 2>&1 &
  pids+=($!)
  wait_port "$work/$name.port"
}
requests_of() { sed -n 's/.*scan: \([0-9]*\) requests in.*/\1/p' "$1" | tail -1; }
gw_answer=$(gateway gw-answer --tcp 0 --device 3 --device 90 --device "200:refuse=17,500,4321,9000,9001")
gw_silent=$(gateway gw-silent --tcp 0 --silent-absent --device 3 --device 90 --device 200)
# The wall time of a command (its stdout and stderr into the two files), in seconds with two decimals.
timed() {
  local out=$1 err=$2 t0
  shift 2
  t0=$(now_ns)
  "$@" >"$out" 2>"$err" || true
  awk -v a="$t0" -v b="$(now_ns)" 'BEGIN { printf "%.2f", (b - a) / 1e9 }'
}
answer_s=$(timed "$work/scan-answer.csv" "$work/scan-answer.err" \
  timeout 120 "${pin[@]}" "$cli" --lang en scan --tcp "127.0.0.1:$gw_answer" --format csv)
silent_s=$(timed "$work/scan-silent.csv" "$work/scan-silent.err" \
  timeout 120 "${pin[@]}" "$cli" --lang en scan --tcp "127.0.0.1:$gw_silent" --timeout "$scan_timeout" --format csv)
map_s=$(timed "$work/scan-map.csv" "$work/scan-map.err" \
  timeout 120 "${pin[@]}" "$cli" --lang en scan --tcp "127.0.0.1:$gw_answer" --unit 200 --registers 0-9999 --format csv)
single_s=$(timed /dev/null /dev/null \
  timeout 120 "${pin[@]}" "$cli" --lang en read --tcp "127.0.0.1:$gw_answer" --unit 200 --fc 3 --address 0 --count 1 \
  --repeat 10000)

# --- 6: memory ---
timeout 300 "${pin[@]}" "$bin/kestrel_bench_memory" trace 127.0.0.1 "$lib_port" "$trace_n" >"$work/mem-trace"
"$bin/kestrel_bench_memory" recording 100000 >"$work/mem-recording"
timeout 300 "${pin[@]}" "$bin/kestrel_bench_memory" churn "$churn" >"$work/mem-churn"
"$bin/kestrel_bench_trace_memory" per-frame >"$work/mem-frame"
"$bin/kestrel_bench_trace_memory" rss 1000000 1000000 >"$work/rss-uncapped"

# --- 11: the bus monitor on a gapless stream ---
for _ in $(seq 1 "$rounds"); do
  "${pin[@]}" "$bin/kestrel_bench_monitor" splitter "$monitor_frames" 0 >"$work/mon-run"
  for k in frames_per_s exact_share_percent cpu_ns_per_frame; do val "$k" "$work/mon-run" >>"$work/mon-clean-$k"; done
  "${pin[@]}" "$bin/kestrel_bench_monitor" splitter "$monitor_frames" 10 >"$work/mon-run"
  for k in frames_per_s exact_share_percent cpu_ns_per_frame noise_bytes; do val "$k" "$work/mon-run" >>"$work/mon-noise-$k"; done
done
# Through the program: kestrel-cli monitor on one end of a pty pair, a burst written to the other;
# done when the CSV holds every row. CPU is the monitor process's user + system time.
monitor_pty_ok=0
if command -v socat >/dev/null 2>&1; then
  timeout 300 socat pty,raw,echo=0,link="$work/ttyC" pty,raw,echo=0,link="$work/ttyD" 2>/dev/null &
  pids+=($!)
  for _ in $(seq 1 100); do [ -e "$work/ttyC" ] && [ -e "$work/ttyD" ] && break; sleep 0.05; done
  monitor_pty_ok=1
  for _ in $(seq 1 "$rounds"); do
    # No timeout wrapper: its pid must be the monitor's own for /proc; the round stops it below.
    "${pin[@]}" "$cli" --lang en monitor --rtu "$work/ttyC" --baud 115200 --quiet --csv "$work/mon.csv" \
      >"$work/mon.out" 2>"$work/mon.err" &
    mpid=$!
    pids+=("$mpid")
    for _ in $(seq 1 200); do grep -q 'Listening on' "$work/mon.err" && break; sleep 0.02; done
    t0=$(now_ns)
    "${pin[@]}" "$bin/kestrel_bench_monitor" write "$work/ttyD" "$monitor_pty_frames" "$work/mon-expected"
    for _ in $(seq 1 6000); do
      [ "$(wc -l <"$work/mon.csv")" -gt "$monitor_pty_frames" ] && break
      sleep 0.01
    done
    t1=$(now_ns)
    ticks=$(awk '{print $14 + $15}' "/proc/$mpid/stat" 2>/dev/null || echo 0)
    kill -INT "$mpid" 2>/dev/null; wait "$mpid" 2>/dev/null || true
    rows=$(($(wc -l <"$work/mon.csv") - 1))
    exact=$(tail -n +2 "$work/mon.csv" | awk -F';' '{print $NF}' | paste -d'|' - "$work/mon-expected" \
      | awk -F'|' '$1 == $2 {n++} END {print n + 0}')
    awk -v n="$rows" -v a="$t0" -v b="$t1" 'BEGIN { printf "%.0f\n", n / ((b - a) / 1e9) }' >>"$work/mon-pty-fps"
    awk -v e="$exact" -v n="$monitor_pty_frames" 'BEGIN { printf "%.3f\n", 100 * e / n }' >>"$work/mon-pty-exact"
    awk -v t="$ticks" -v hz="$(getconf CLK_TCK)" -v n="$rows" 'BEGIN { printf "%.2f\n", (n > 0) ? t / hz * 1e6 / n : 0 }' \
      >>"$work/mon-pty-cpu"
  done
fi

# --- 7: the window under Wine (not pinned: the program, the wineserver and the X server share both
# vCPUs as they do for a user) ---
window_status=""
window_exe="$root/$window_build/bench/kestrel_bench_window.exe"
if [ ! -f "$root/$window_build/CMakeCache.txt" ]; then
  window_status="not run: no Windows build in $window_build (cmake --preset windows)"
elif ! command -v wine >/dev/null 2>&1 || ! command -v Xvfb >/dev/null 2>&1; then
  window_status="not run: wine or Xvfb missing"
elif ! cmake --build "$root/$window_build" -j2 --target kestrel_bench_window >"$work/window-build" 2>&1; then
  window_status="not run: kestrel_bench_window did not build"
elif ! timeout $((window_rounds * (window_seconds + 60) + 120)) "$root/tools/wine-gui-run.sh" "$window_exe" \
  "$window_rounds" "$window_lines" 7 "$window_seconds" >"$work/window" 2>&1 || ! grep -q '^refresh_ms ' "$work/window"; then
  window_status="not run: the window benchmark failed under Wine"
fi

# --- the table ---
{
  echo
  echo "Kestrel vs libmodbus $(pkg-config --modversion libmodbus 2>/dev/null || echo '?'), $(date -u '+%Y-%m-%d %H:%M UTC'), $(uname -srm)"
  echo "CPU: $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo), $(nproc) vCPU; load before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
  echo "Command: tools/bench.sh (rounds $rounds, $seconds s per throughput run, pinned: ${pin[*]:-no taskset})"
  echo "Figures: median [min-max] of the rounds; ratio = ours / reference (medians)."
  echo
} | tee -a "$table"
row "row" "ours" "reference" "ratio"
row "----------------------------------------------------" "------------------" "------------------" "-------"
for r in "${requests[@]}"; do
  compare_row "1 master $r, transactions/s, libmodbus server" "$work/kes-lib-$r" "$work/lib-lib-$r"
done
for r in "${requests[@]}"; do
  compare_row "1 master $r, transactions/s, Kestrel slave" "$work/kes-kes-$r" "$work/lib-kes-$r"
done
for r in "${requests[@]}"; do
  compare_row "1 floor $r: bare client vs libmodbus client" "$work/raw-lib-$r" "$work/lib-lib-$r"
done
for r in "${requests[@]}"; do
  compare_row "2 slave $r, transactions/s, libmodbus client" "$work/lib-kes-$r" "$work/lib-lib-$r"
done
for r in "${requests[@]}"; do
  compare_row "2 floor $r: bare server vs libmodbus server" "$work/lib-raw-$r" "$work/lib-lib-$r"
done
compare_row "3 kestrel-cli read --repeat $cli_reads, reads/s" "$work/cli-kes-read" "$work/cli-lib-read"
compare_row "3 kestrel-cli slave, FC03 x 10 transactions/s" "$work/cli-kes-slave" "$work/cli-lib-slave"
row "3   read output lines (expected $lines_expected)" "$lines_read" "" ""
row "3   first read's values in the file after, ms" "${first_value_ms:-never}" "(200 ms delay)" ""
row "3   slave's request line in the file after, ms" "${slave_line_ms:-never}" "" ""
eng=$(field engine_us_per_detail 2 "$work/polling"); bare=$(field bare_us_per_read 2 "$work/polling")
row "4 polling, us per detail (engine vs bare FC03)" \
  "$(spread_field engine_us_per_detail "$work/polling")" "$(spread_field bare_us_per_read "$work/polling")" "$(ratio "$eng" "$bare")"
row "4   of which: the reads / the results handler, us" \
  "$(field engine_read_us_per_detail 2 "$work/polling") / $(field handler_us_per_detail 2 "$work/polling")" "" ""
row "4   engine overhead per detail, %" "$(awk -v e="$eng" -v b="$bare" 'BEGIN { printf "%.1f", (b > 0) ? (e / b - 1) * 100 : 0 }')" "" ""
# Wall time also holds the waits for the server, which vary from round to round; the polling
# thread's CPU time is what the engine itself costs.
ecpu=$(field engine_cpu_us_per_detail 2 "$work/polling"); bcpu=$(field bare_cpu_us_per_read 2 "$work/polling")
row "4   client CPU, us per detail (engine vs bare FC03)" \
  "$(spread_field engine_cpu_us_per_detail "$work/polling")" "$(spread_field bare_cpu_us_per_read "$work/polling")" \
  "$(ratio "$ecpu" "$bcpu")"
row "4   engine's own CPU per detail, % of a bare read" \
  "$(awk -v e="$ecpu" -v c="$bcpu" -v b="$bare" 'BEGIN { printf "%.1f", (b > 0) ? (e - c) / b * 100 : 0 }')" "" ""
if [ "$rtu_ok" = 1 ]; then
  compare_row "5 RTU FC03 x 10 over a pty, transactions/s" "$work/rtu-kes" "$work/rtu-lib"
else
  row "5 RTU over a pty" "not run (socat missing or a run failed)" "" ""
fi
row "6 peak RSS, KiB, $trace_n transactions, trace on" "$(val peak_rss_kb "$work/mem-trace")" "" ""
row "6   RSS after 1 % / 10 % / all of them, KiB" \
  "$(awk '/^rss_kb_after_/ {printf "%s%s", s, $2; s = " / "}' "$work/mem-trace")" "" ""
row "6   trace frames kept (the cap)" "$(val trace_frames_kept "$work/mem-trace")" "" ""
row "6   peak RSS, 1,000,000 frames, no cap, KiB" "$(val peak_rss_kb "$work/rss-uncapped")" "" ""
row "6 heap per trace frame (FC03 x 10), bytes" "$(val heap_bytes_per_frame "$work/mem-frame")" "" ""
row "6 heap per recording entry, bytes" "$(val recording_heap_bytes_per_entry "$work/mem-recording")" "" ""
row "6 slave RSS, KiB, before/after $churn connect+close" \
  "$(val churn_rss_kb_before "$work/mem-churn") / $(val churn_rss_kb_after "$work/mem-churn")" "" ""
row "6   open descriptors before/after" \
  "$(val churn_fds_before "$work/mem-churn") / $(val churn_fds_after "$work/mem-churn")" "" ""
if [ -n "$window_status" ]; then
  row "7 window (under Wine)" "$window_status" "" ""
else
  w=$work/window
  # "median [min-max]" of a key of the window benchmark's output.
  wfig() { echo "$(fmt "$(field "$1" 2 "$w")") [$(fmt "$(field "$1" 3 "$w")")-$(fmt "$(field "$1" 4 "$w")")]"; }
  row "7 window: log, first 1,000 appends, ms" \
    "$(wfig log_first1000_ms)" "" ""
  row "7   last 1,000 appends, ms; ratio last / first" \
    "$(wfig log_last1000_ms)" "" \
    "$(fmt "$(field log_ratio 2 "$w")")"
  row "7   median append, first / last 1,000, us" \
    "$(fmt "$(field log_first1000_median_append_us 2 "$w")") / $(fmt "$(field log_last1000_median_append_us 2 "$w")")" "" ""
  row "7   lines appended (of $window_lines), s with paint" \
    "$(field log_lines 2 "$w") in $(fmt "$(field log_wall_s 2 "$w")")" "" ""
  row "7   filled + painted per 100 lines, first/last, ms" \
    "$(fmt "$(field log_paint_first_ms 2 "$w")") / $(fmt "$(field log_paint_last_ms 2 "$w")")" "" ""
  row "7 window: Diagnostics refresh, 10,000 frames, ms" \
    "$(wfig refresh_ms)" "" ""
  row "7   with the paint that follows, ms" \
    "$(wfig refresh_paint_ms)" "" ""
fi
if [ "$rot_ok" = 1 ]; then
  compare_row "8 RTU over TCP FC03 x 10, our slave, tps (vs pymodbus)" "$work/rot-kes-kes" "$work/rot-py-kes"
  compare_row "8 RTU over TCP FC03 x 10, pymodbus server, tps" "$work/rot-kes-py" "$work/rot-py-py"
else
  row "8 RTU over TCP" "not run (pymodbus missing or a run failed)" "" ""
fi
row "9 scan 247 ids, 3 devices, 0x0B for the rest, s" "$answer_s" "" ""
row "9   found (answering)" "$(grep -c ';answering;' "$work/scan-answer.csv" || true)" "" ""
row "9 scan 247 ids, 3 devices, rest silent, s" "$silent_s" "(244 x $scan_timeout ms)" ""
row "9   found (answering)" "$(grep -c ';answering;' "$work/scan-silent.csv" || true)" "" ""
row "9 map 0-9999, 5 refused: requests / s" \
  "$(requests_of "$work/scan-map.err") / $map_s" "10000 / $single_s" \
  "$(ratio "$(requests_of "$work/scan-map.err")" 10000)"
row "9   ranges found" "$(($(wc -l <"$work/scan-map.csv") - 1))" "" ""
BENCH_MQTT_NO_BUILD=1 BENCH_BUILD_DIR="$build" BENCH_OUT="$table" bash tools/bench_mqtt.sh >/dev/null
tail -n 11 "$table"
mfig() { echo "$(fmt "$(median <"$1")") [$(spread "$1")]"; }
row "11 monitor, gapless stream, frames recovered/s" "$(mfig "$work/mon-clean-frames_per_s")" "" ""
row "11   recovered exactly, %" "$(mfig "$work/mon-clean-exact_share_percent")" "" ""
row "11   CPU per frame, ns" "$(mfig "$work/mon-clean-cpu_ns_per_frame")" "" ""
row "11   noise byte every 10 frames: frames/s" "$(mfig "$work/mon-noise-frames_per_s")" "" ""
row "11   ... recovered exactly, %; noise bytes counted" \
  "$(fmt "$(median <"$work/mon-noise-exact_share_percent")"); $(median <"$work/mon-noise-noise_bytes")" "" ""
row "11   ... CPU per frame, ns" "$(mfig "$work/mon-noise-cpu_ns_per_frame")" "" ""
if [ "$monitor_pty_ok" = 1 ]; then
  row "11 kestrel-cli monitor on a pty, $monitor_pty_frames frames, /s" "$(mfig "$work/mon-pty-fps")" "" ""
  row "11   recovered exactly, %" "$(mfig "$work/mon-pty-exact")" "" ""
  row "11   CPU per frame (the process, with CSV), us" "$(mfig "$work/mon-pty-cpu")" "" ""
else
  row "11 kestrel-cli monitor on a pty" "not run (socat missing)" "" ""
fi
echo | tee -a "$table"
echo "Total time $(( $(date +%s) - started )) s." | tee -a "$table"
if [ -n "$out" ]; then cp "$table" "$out"; fi
