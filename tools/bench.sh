#!/usr/bin/env bash
# Builds the benchmarks (linux-release preset, KESTREL_BUILD_BENCH=ON) and runs them all, then prints
# one comparison table. Figures are ratios measured in the same run: absolute numbers on this kind
# of machine move about threefold with where the client and the server land, so both sides of the
# master comparison are pinned alike (taskset -c 0, one vCPU for client and server).
#
# Environment: BENCH_BUILD_DIR (default build/linux-release), BENCH_SECONDS per master run
# (default 3), BENCH_ROUNDS of the master comparison (default 3).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${BENCH_BUILD_DIR:-build/linux-release}
seconds=${BENCH_SECONDS:-3}
rounds=${BENCH_ROUNDS:-3}

bash tools/setup.sh >/dev/null
cmake --preset linux-release -B "$build" -DKESTREL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target kestrel_bench_codec kestrel_bench_master kestrel_bench_trace_memory \
  kestrel_bench_libmodbus_master kestrel_bench_libmodbus_server >/dev/null
bin="$root/$build/bench"

work=$(mktemp -d /tmp/kestrel-bench-XXXXXX)
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

pin=()
if command -v taskset >/dev/null 2>&1; then pin=(taskset -c 0); fi

median() { sort -n | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2}'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }'; }

# --- master FC03 transactions/s against one libmodbus server ---
timeout 600 "${pin[@]}" "$bin/kestrel_bench_libmodbus_server" "$work/port" 600 &
server_pid=$!
for _ in $(seq 1 100); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(cat "$work/port")

: >"$work/ours" ; : >"$work/ours_log" ; : >"$work/libmodbus"
for _ in $(seq 1 "$rounds"); do
  # Alternate the programs so drift on the machine hits both alike.
  timeout 120 "${pin[@]}" "$bin/kestrel_bench_libmodbus_master" 127.0.0.1 "$port" "$seconds" >>"$work/libmodbus"
  timeout 120 "${pin[@]}" "$bin/kestrel_bench_master" 127.0.0.1 "$port" "$seconds" >>"$work/ours"
  timeout 120 "${pin[@]}" "$bin/kestrel_bench_master" 127.0.0.1 "$port" "$seconds" --log >>"$work/ours_log"
done
kill "$server_pid" 2>/dev/null || true
wait "$server_pid" 2>/dev/null || true
server_pid=""
lib_tps=$(median <"$work/libmodbus")
our_tps=$(median <"$work/ours")
our_log_tps=$(median <"$work/ours_log")

# --- CRC-16, frame building, trace-log operations ---
"${pin[@]}" "$bin/kestrel_bench_codec" --benchmark_min_time=0.2 --benchmark_format=csv 2>/dev/null \
  | grep '^"BM_' >"$work/codec.csv"
ns() { awk -F, -v n="\"$1\"" '$1 == n { printf "%.1f", $4 }' "$work/codec.csv"; }
us() { awk -F, -v n="\"$1\"" '$1 == n { printf "%.1f", $4 }' "$work/codec.csv"; }

# --- trace-log memory ---
"$bin/kestrel_bench_trace_memory" per-frame >"$work/mem"
"$bin/kestrel_bench_trace_memory" rss 1000000 10000 >"$work/rss_capped"
"$bin/kestrel_bench_trace_memory" rss 1000000 1000000 >"$work/rss_uncapped"
"$bin/kestrel_bench_trace_memory" rss 0 10000 >"$work/rss_empty"
val() { awk -v k="$1" '$1 == k { print $2 }' "$2"; }

crc8=$(ns BM_Crc16/8); crc256=$(ns BM_Crc16/256)
tab8=$(ns BM_Crc16TableReference/8); tab256=$(ns BM_Crc16TableReference/256)
record=$(ns BM_TraceRecordIntoFullLog)
per_txn_us=$(awk -v t="$our_tps" 'BEGIN { printf "%.1f", (t > 0) ? 1e6 / t : 0 }')

printf '\n%-58s %14s %14s %8s\n' "measure" "ours" "reference" "ratio"
printf '%-58s %14s %14s %8s\n' "----------------------------------------------------------" "--------------" "--------------" "--------"
printf '%-58s %14s %14s %8s\n' "FC03 x10 regs, transactions/s vs libmodbus master" "$our_tps" "$lib_tps" "$(ratio "$our_tps" "$lib_tps")"
printf '%-58s %14s %14s %8s\n' "  same, with a log callback installed (as the app runs)" "$our_log_tps" "$lib_tps" "$(ratio "$our_log_tps" "$lib_tps")"
printf '%-58s %14s %14s %8s\n' "CRC-16 of 8 bytes, ns (bitwise vs 256-entry table)" "$crc8" "$tab8" "$(ratio "$crc8" "$tab8")"
printf '%-58s %14s %14s %8s\n' "CRC-16 of 256 bytes, ns (bitwise vs 256-entry table)" "$crc256" "$tab256" "$(ratio "$crc256" "$tab256")"
printf '%-58s %14s\n' "BuildRtuRequest FC03, ns" "$(ns BM_BuildRtuRequestFc03)"
printf '%-58s %14s\n' "BuildTcpRequest FC03, ns" "$(ns BM_BuildTcpRequestFc03)"
printf '%-58s %14s\n' "BuildRtuRequest FC10 123 regs, ns" "$(ns BM_BuildRtuRequestFc10Max)"
printf '%-58s %14s\n' "HexDump of a 29-byte response, ns" "$(ns BM_HexDumpFc03Response)"
printf '%-58s %14s %14s %8s\n' "trace Record into a full log, ns (vs one transaction)" "$record" "${per_txn_us}us" \
  "$(awk -v r="$record" -v t="$per_txn_us" 'BEGIN { printf "%.3f", (t > 0) ? r / (t * 1000) : 0 }')"
printf '%-58s %14s\n' "trace Snapshot of 10,000 frames, us" "$(us BM_TraceSnapshotFullLog)"
printf '%-58s %14s\n' "trace ComputeStatistics of 10,000 frames, us" "$(us BM_TraceStatisticsFullLog)"
printf '%-58s %14s\n' "trace BuildPcap of 10,000 frames, us" "$(us BM_TraceBuildPcapFullLog)"
printf '%-58s %14s\n' "sizeof(TraceFrame), bytes" "$(val sizeof_trace_frame "$work/mem")"
printf '%-58s %14s\n' "heap per FC03 frame in the log, bytes" "$(val heap_bytes_per_frame "$work/mem")"
printf '%-58s %14s\n' "heap of a full log (10,000 frames), bytes" "$(val heap_bytes_full_log "$work/mem")"
printf '%-58s %14s %14s %8s\n' "peak RSS after 1,000,000 frames, KiB (cap 10,000 vs none)" \
  "$(val peak_rss_kb "$work/rss_capped")" "$(val peak_rss_kb "$work/rss_uncapped")" \
  "$(ratio "$(val peak_rss_kb "$work/rss_capped")" "$(val peak_rss_kb "$work/rss_uncapped")")"
printf '%-58s %14s\n' "peak RSS of the same process with an empty log, KiB" "$(val peak_rss_kb "$work/rss_empty")"
echo
echo "Master runs: ${rounds} x ${seconds} s each side, medians, client and server pinned with: ${pin[*]:-(no taskset)}"
