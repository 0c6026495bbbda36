#!/usr/bin/env bash
# Row 10 of tools/bench.sh, also run on its own: the MQTT bridge under load. kestrel-cli poll --mqtt
# polls a structure of 1,000 UINT16 details every 100 ms from our slave and bridges them to a local
# mosquitto broker (started here on a free port, with a configuration of its own, stopped at the
# end); a subscriber in the benchmark program times every receipt. Three runs: polling alone (the
# CPU the process needs without the bridge), the bridge at QoS 0, at QoS 1.
#
# Not pinned: poller, bridge, broker and subscriber share the machine's vCPUs as they would in use.
# The broker lets 1,000 messages be in flight to the subscriber (its default, 20, would make the
# subscriber's side the bottleneck of QoS 1) and queue 100,000.
# The default run measures BENCH_MQTT_SECONDS=60 s per QoS (after 3 s of warm-up), which is long
# enough to see whether memory stays flat but is not the ten minutes of a soak: the long mode is
# BENCH_MQTT_SECONDS=600 tools/bench_mqtt.sh. Never asserted anywhere.
#
# Environment: BENCH_BUILD_DIR (default build/linux-release), BENCH_MQTT_SECONDS (default 60),
# BENCH_MQTT_BASELINE_SECONDS (default 10), BENCH_OUT (a file the rows are appended to).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${BENCH_BUILD_DIR:-build/linux-release}
seconds=${BENCH_MQTT_SECONDS:-60}
baseline_seconds=${BENCH_MQTT_BASELINE_SECONDS:-10}
out=${BENCH_OUT:-}

if [ ! -x "$build/bench/kestrel_bench_mqtt" ] || [ "${BENCH_MQTT_NO_BUILD:-0}" != 1 ]; then
  cmake --preset linux-release -B "$build" -DKESTREL_BUILD_TESTS=OFF >/dev/null
  cmake --build "$build" -j2 --target kestrel-cli kestrel_bench_mqtt >/dev/null
fi
bench="$root/$build/bench/kestrel_bench_mqtt"
cli="$root/$build/src/cli/kestrel-cli"

work=$(mktemp -d /tmp/kestrel-bench-mqtt-XXXXXX)
broker_pid=""
cleanup() {
  if [ -n "$broker_pid" ]; then kill "$broker_pid" 2>/dev/null || true; wait "$broker_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf 'listener %s 127.0.0.1\nallow_anonymous true\nuser %s\nmax_queued_messages 100000\nmax_inflight_messages 1000\n' "$port" "$(id -un)" \
  > "$work/mosquitto.conf"
/usr/sbin/mosquitto -c "$work/mosquitto.conf" > "$work/broker.log" 2>&1 &
broker_pid=$!
for _ in $(seq 1 100); do
  (exec 3<>/dev/tcp/127.0.0.1/"$port") 2>/dev/null && break
  sleep 0.05
done

"$bench" "$cli" "$port" 0 "$baseline_seconds" --no-mqtt > "$work/base"
"$bench" "$cli" "$port" 0 "$seconds" > "$work/qos0"
"$bench" "$cli" "$port" 1 "$seconds" > "$work/qos1"

field() { awk -v k="$1" -v f="$2" '$1 == k { print $f }' "$3"; }
row() { printf '%-52s %18s %18s %7s\n' "$@" | tee -a "${out:-/dev/null}"; }
base_cpu=$(field process_cpu_us_per_s 2 "$work/base")
for q in 0 1; do
  f=$work/qos$q
  rate=$(field delivered_per_s 2 "$f")
  row "10 MQTT QoS $q, messages/s delivered / produced" "$rate / $(field produced_per_s 2 "$f")" "" ""
  row "10   cycle end to receipt, ms, median / p99 / max" \
    "$(field delay_ms 2 "$f") / $(field delay_ms 3 "$f") / $(field delay_ms 4 "$f")" "" ""
  row "10   bridge thread CPU per message, us" "$(field bridge_cpu_us 2 "$f")" "" ""
  row "10   whole kestrel-cli CPU per message, us" \
    "$(awk -v c="$(field process_cpu_us_per_s 2 "$f")" -v r="$rate" 'BEGIN { printf "%.2f", (r > 0) ? c / r : 0 }')" "" ""
  row "10   RSS KiB over ${seconds} s: start / end (min-max)" \
    "$(field rss_kb 2 "$f") / $(field rss_kb 3 "$f") ($(field rss_kb 4 "$f")-$(field rss_kb 5 "$f"))" "" ""
done
# The same polling without --mqtt, for scale: what the process needs to poll 1,000 details every
# 100 ms. On a machine shared with other work this figure moves from run to run by tens of percent,
# so the bridge's own cost is read from its thread, not from the difference of two process totals.
row "10 polling alone (no --mqtt): kestrel-cli CPU, ms per s" "$(awk -v b="$base_cpu" 'BEGIN { printf "%.1f", b / 1000 }')" "" ""
