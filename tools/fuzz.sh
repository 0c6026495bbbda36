#!/usr/bin/env bash
# Runs the libFuzzer targets of fuzz/ (clang, AddressSanitizer and UndefinedBehaviorSanitizer).
#   tools/fuzz.sh TARGET SECONDS [RUNS]
#                                  fuzz one target for that long, or until RUNS executions (TARGET:
#                                  master, slave_tcp, slave_rtu, structures, decode, monitor, or all for
#                                  each in turn)
#   tools/fuzz.sh regress          run every target once over its seeds and its regression inputs
# The seeds are fuzz/corpus/TARGET (kept in the repository); what the fuzzer adds goes to
# build/fuzz-corpus/TARGET, a crash input to build/fuzz-artifacts/TARGET/. A crash input is moved to
# fuzz/regressions/TARGET/ before the fault is fixed, so every later run replays it.
# Exit status: 0 when nothing crashed. The last line of each run is libFuzzer's final statistics
# (stat::number_of_executed_units is the number of executions).
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(master slave_tcp slave_rtu structures decode monitor)
# The longest input a target is given (libFuzzer's -max_len; 4096 bytes otherwise). What lies beyond
# reaches no code a shorter input does not, and long inputs cost time in the fuzzer's bookkeeping:
#   master: an operation reads one response. RTU: one read of at most 256 bytes. TCP: the MBAP
#     length says how much is read (up to 65535 bytes), but what the master makes of a frame
#     depends on its first bytes and its byte count; a longer body only adds turns to the loops
#     bounded by the frame size (the FIFO words). 1024 bytes carry any response of up to 264 bytes
#     in any chunking, and longer frames whole or cut short.
#   slave_tcp, slave_rtu: a session is request after request (frame after frame), each handled on
#     its own, and what a request leaves behind (the register image) is kept from one input to the
#     next anyway. A receive takes at most one chunk (127 bytes) and an RTU read at most 256 bytes,
#     so 1024 bytes hold a session of a dozen requests or more, and the longest frames.
#   monitor: a frame is at most 256 bytes and the splitter looks at most one frame and the next
#     one ahead; 2048 bytes hold a few dozen reads with frames, noise and pauses.
#   structures: the reader handles every structure and detail object alike; 2048 bytes hold two
#     structures, or one with two or three details (the seeds; with less white space, more).
declare -A max_len=([master]=1024 [slave_tcp]=1024 [slave_rtu]=1024 [structures]=2048 [monitor]=2048)
what="${1:-}"
seconds="${2:-20}"
runs="${3:--1}"
if [ -z "$what" ]; then
  sed -n '2,13p' "$0"
  exit 2
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target $(printf 'fuzz_%s ' "${targets[@]}") >/dev/null

run_regressions() {
  local t=$1 inputs=()
  inputs+=(fuzz/corpus/"$t"/*)
  if compgen -G "fuzz/regressions/$t/*" >/dev/null; then inputs+=(fuzz/regressions/"$t"/*); fi
  mkdir -p build/fuzz-artifacts/"$t"
  echo "== fuzz_$t: ${#inputs[@]} seed and regression inputs, each once"
  # Given files, libFuzzer runs each once; a crash ends it with a non-zero status.
  build/fuzz/fuzz/fuzz_"$t" -runs=1 "${inputs[@]}" >build/fuzz-artifacts/"$t"/regress.log 2>&1 ||
    { tail -n 60 build/fuzz-artifacts/"$t"/regress.log; return 1; }
}

run_fuzz() {
  local t=$1 secs=$2
  mkdir -p build/fuzz-corpus/"$t" build/fuzz-artifacts/"$t"
  echo "== fuzz_$t for $secs s"
  # -rss_limit_mb: a leak or a runaway allocation fails the run; -timeout: a hang of one input does.
  build/fuzz/fuzz/fuzz_"$t" -max_total_time="$secs" -runs="$runs" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
    -max_len="${max_len[$t]:-4096}" \
    -artifact_prefix=build/fuzz-artifacts/"$t"/ build/fuzz-corpus/"$t" fuzz/corpus/"$t" \
    >build/fuzz-artifacts/"$t"/last-run.log 2>&1 || { tail -n 60 build/fuzz-artifacts/"$t"/last-run.log; return 1; }
  grep -E '^(stat::number_of_executed_units|stat::average_exec_per_sec|stat::peak_rss_mb)' build/fuzz-artifacts/"$t"/last-run.log
}

status=0
case "$what" in
  regress)
    for t in "${targets[@]}"; do run_regressions "$t" || status=1; done ;;
  all)
    for t in "${targets[@]}"; do run_regressions "$t" && run_fuzz "$t" "$seconds" || status=1; done ;;
  *)
    [[ " ${targets[*]} " == *" $what "* ]] || { echo "unknown target: $what" >&2; exit 2; }
    run_regressions "$what" && run_fuzz "$what" "$seconds" || status=1 ;;
esac
exit $status
